#pragma once
// What the network checks say when something escaped their worker's Run.
#include "share/common/TString.h"
#include "share/common/Thread.h"

/// One line naming what escaped the ended worker's Run (the first line of an
/// exception's text, HTML-escaped), or empty when Run returned normally.
tstring DescribeWorkerFailure(const zul::Thread& worker);

/// The red report line for a failure that DescribeWorkerFailure named; the
/// check then fails whatever its figures say.
void PrintWorkerFailure(const tstring& failure);
