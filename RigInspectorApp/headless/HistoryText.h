#pragma once
// rig_inspector_cli --history: the kept runs as a short table.
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

/// One line a run, oldest first, under a heading that names the file; a
/// line saying so when there is no run yet.
std::string HistoryTableText(const std::vector<nlohmann::ordered_json>& runs, const std::u8string& file);
