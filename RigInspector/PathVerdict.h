#pragma once
// Where loss begins on the way to the test server, from the hops' own counts
// and the extended echo's end-to-end loss. Routers answer probes about
// themselves with rate-limited ICMP, so a hop's own "loss" counts only where it
// carries on to every later hop; the echo, with far more probes than any hop
// gets, decides whether there is loss at all.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "PathReport.h"

/// Loss over the echo below this is noise, not a finding (percent).
inline constexpr double kPathLossFloorPercent = 2.0;

/// True for RFC 1918, shared (100.64.0.0/10) and link-local addresses.
bool IsHomeAddress(std::uint32_t address);
std::optional<std::uint32_t> ParseIPv4(const std::string& text);

/// Fills homeNetwork, rateLimited, lossStartsAtHop, lossStartsInHome and the
/// verdict. endToEndLossPercent: the echo's loss (both ways together); nothing
/// when the echo did not run, and then the server's own hop stands in for it.
void JudgePath(PathReport& report, std::optional<double> endToEndLossPercent);

/// The hop table and the verdict as plain lines, for the terminal and the
/// details views.
std::vector<std::string> PathDetailLines(const PathReport& report);
