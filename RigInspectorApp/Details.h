#pragma once
// The details a front end shows beside the report: what the checks and the
// settings diagnosed, and room for further measurements. Made here, once, so
// every front end shows the same lines.
#include <optional>
#include <vector>

#include "Advice.h"
#include "UiToolkit.h"

/// Every section there is to show now, in a fixed order; empty when there is
/// nothing. A further source of details adds its section here.
std::vector<DetailSection> CollectDetails();

/// The advice on this run's checks, settings and diagnostics, and on the
/// extended step's result where it ran (nothing: it did not).
std::vector<AdviceItem> AdviceForThisRun(const ExtendedResult* extended);

/// Keeps the extended step's result for the advice at the top of the details;
/// safe from the thread that ran the step.
void SetExtendedForDetails(const ExtendedResult& result);
/// What SetExtendedForDetails kept, if the step ran.
std::optional<ExtendedResult> ExtendedForDetails();
