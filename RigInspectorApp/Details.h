#pragma once
// The details a front end shows beside the report: what the checks and the
// settings diagnosed, and room for further measurements. Made here, once, so
// every front end shows the same lines.
#include <vector>

#include "UiToolkit.h"

/// Every section there is to show now, in a fixed order; empty when there is
/// nothing. A further source of details adds its section here.
std::vector<DetailSection> CollectDetails();
