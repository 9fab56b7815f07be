#pragma once
// The desktop's side of the run record: its results document, the history
// line written when the player leaves, the bundle the details window saves,
// and what the run before this one could not do. Both toolkits call these.
#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "RigInspector/Diagnostics.h"
#include "RigInspector/ExtendedResult.h"
#include "UiToolkit.h"

/// The run so far as its results document (tool "rig_inspector").
nlohmann::ordered_json DesktopRunDocument(std::time_t finished);

/// Whether a run belongs in the history: one whose checks finished, or one
/// left early that could not write the game's options.
bool WorthRecording(bool checksFinished, const std::vector<Diagnostic>& diagnostics);

/// Adds the run to the history once its check sequence has finished (or, as
/// above, when the options could not be written); called
/// when the dialogs are gone, so a failure to write the game's options is in it.
void RecordDesktopRun();

/// The bundle of the run so far: report as shown, the kept runs and this one.
std::string DesktopBundle(const tstring& reportDocument);

/// What the last kept run reported beside its report (a file it could not
/// write, a port held by another program), read once; nothing when there was
/// no such run or it had nothing to say.
std::optional<DetailSection> PreviousRunDetails();

/// That section for the kept runs given, oldest first.
std::optional<DetailSection> PreviousRunSection(const std::vector<nlohmann::ordered_json>& runs);
