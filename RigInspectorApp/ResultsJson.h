#pragma once
// The CLI's machine-readable results and its exit status, both made from the
// same result records as the report.
#include <optional>
#include <vector>

#include <nlohmann/json.hpp>

#include "RigInspector/CheckResults.h"
#include "RigInspector/Diagnostics.h"
#include "RigInspectorApp/GraphicConfigDlg.h"

/// True when every check that ran passed (a video "error!" is not a pass).
bool AllChecksPassed(const CheckResults& results);

/// 0 when every check that ran passed, 1 otherwise.
int CheckExitStatus(const CheckResults& results);

struct RunOutcome
{
    std::int32_t cpuSpeedMhz = 0;
    std::int32_t videoMemoryMb = 0;
    std::int32_t systemMemoryMb = 0;
    std::optional<bool> optionsWritten; // nothing: not asked to write
    bool patcherRequested = false;
    std::optional<bool> patcherStarted;
    std::vector<Diagnostic> diagnostics;
};

nlohmann::ordered_json ResultsToJson(const CheckResults& results, const RunOutcome& outcome);
