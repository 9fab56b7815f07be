#pragma once
// One finished run as its results document (what --json writes), kept in the
// run history and shown in the bundle. Shared by the CLI and both desktops.
#include <ctime>
#include <filesystem>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "Advice.h"
#include "ResultsJson.h"
#include "RigInspector/ExtendedResult.h"

/// The time as ISO 8601 local time with its offset: "2026-11-25T16:42:05+01:00".
std::string IsoLocalTime(std::time_t t);

/// "rig-inspector-YYYYMMDD-HHMMSS.html" in local time: the bundle's file name.
std::string BundleFileName(std::time_t t);

/// ResultsToJson's document, with "extended" when that step ran, "advice"
/// and "finished_at".
nlohmann::ordered_json RunDocument(const CheckResults& results, const RunOutcome& outcome,
                                   const std::optional<ExtendedResult>& extended,
                                   const std::vector<AdviceItem>& advice, std::time_t finished);

/// The document as --json writes it, and as the bundle embeds it.
std::string ResultsText(const nlohmann::ordered_json& document);

/// The diagnostic a run gets when its history line could not be written.
inline constexpr char kHistoryWriteFailed[] = "history_write_failed";

/// Appends the document to the history in folder. When that fails the run
/// goes on: the reason becomes a diagnostic, and false is returned.
bool RecordRun(const nlohmann::ordered_json& document, const std::filesystem::path& folder);
