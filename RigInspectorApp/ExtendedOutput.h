#pragma once
// The extended step in the CLI: its JSON object, its terminal summary (after
// the report, never inside it) and its progress line.
#include <cstdint>
#include <string>

#include <nlohmann/json.hpp>

#include "RigInspector/ExtendedResult.h"

nlohmann::ordered_json ExtendedToJson(const ExtendedResult& result);

/// The summary lines, each ending in a newline.
std::string ExtendedSummaryText(const ExtendedResult& result);

/// One line on standard error, rewritten in place; empty phase erases it.
void WriteExtendedProgress(const char* phase, std::uint32_t elapsedMs, std::uint32_t totalMs);
