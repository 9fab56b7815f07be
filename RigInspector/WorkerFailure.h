#pragma once
// What the network checks say when something escaped their worker's Run.
#include "share/common/TString.h"
#include "share/common/Thread.h"

/// One line naming what escaped the ended worker's Run (the first line of an
/// exception's text), or empty when Run returned normally.
tstring DescribeWorkerFailure(const zul::Thread& worker);

/// The diagnostic for a failure that DescribeWorkerFailure named; the check
/// then fails whatever its figures say. testName: "speed" or "UDP echo".
void DiagnoseWorkerFailure(const char16_t* testName, const tstring& failure);
