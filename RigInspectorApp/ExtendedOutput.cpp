#include "ExtendedOutput.h"

#include <unistd.h>

#include <cmath>
#include <cstdio>

using nlohmann::ordered_json;

namespace
{
template <class T> ordered_json Optional(const std::optional<T>& value)
{
    return value ? ordered_json(*value) : ordered_json(nullptr);
}

// Two decimals are finer than any of the figures is true to.
ordered_json Rounded(const std::optional<double>& value)
{
    return value ? ordered_json(static_cast<double>(static_cast<long long>(*value * 100.0 + 0.5)) / 100.0)
                 : ordered_json(nullptr);
}

ordered_json PathToJson(const std::optional<PathReport>& path)
{
    if (!path || !path->ran)
        return nullptr;
    ordered_json hops = ordered_json::array();
    for (const PathHop& hop : path->hops)
        hops.push_back({{"ttl", hop.ttl},
                        {"address", Optional(hop.address)},
                        {"sent", hop.sent},
                        {"answered", hop.answered},
                        {"loss_percent", Rounded(hop.lossPercent)},
                        {"rtt_ms", hop.rttP50Ms ? ordered_json{{"min", Rounded(hop.rttMinMs)},
                                                               {"p50", Rounded(hop.rttP50Ms)},
                                                               {"max", Rounded(hop.rttMaxMs)}}
                                                : ordered_json(nullptr)},
                        {"rate_limited", hop.rateLimited}});
    return {{"target", path->target},
            {"probes_per_hop", path->probesPerHop},
            {"hops", hops},
            {"reached", path->reached},
            {"loss_starts_at_hop", Optional(path->lossStartsAtHop)},
            {"verdict", {{"code", path->verdictCode}, {"text", path->verdictText}}}};
}
} // namespace

ordered_json ExtendedToJson(const ExtendedResult& r)
{
    ordered_json j;
    j["ran"] = r.ran;
    j["failure"] = r.failure.empty() ? ordered_json(nullptr) : ordered_json(r.failure);
    j["protocol_version"] = 1;
    j["duration_ms"] = r.durationMs;
    j["latency_idle_ms"] = {{"p50", Rounded(r.idle.p50)},
                            {"p90", Rounded(r.idle.p90)},
                            {"min", Rounded(r.idle.min)},
                            {"samples", r.idle.samples}};
    j["latency_loaded_ms"] = {{"p50", Rounded(r.loaded.p50)},
                              {"p90", Rounded(r.loaded.p90)},
                              {"samples", r.loaded.samples},
                              {"increase", Rounded(r.increaseMs)},
                              {"grade", r.grade.empty() ? ordered_json(nullptr) : ordered_json(r.grade)}};
    ordered_json bands = ordered_json::object();
    for (const auto& band : kGradeBands)
        bands[band.grade] =
            std::isinf(band.maxIncreaseMs) ? ordered_json(nullptr) : ordered_json(band.maxIncreaseMs);
    j["grade_max_increase_ms"] = bands;
    j["udp"] = {{"sent", r.sent},
                {"answered", r.answered},
                {"server_received", Optional(r.serverReceived)},
                {"loss_up_percent", Rounded(r.lossUpPercent)},
                {"loss_down_percent", Rounded(r.lossDownPercent)},
                {"jitter_ms", Rounded(r.jitterMs)},
                {"reordered", r.reordered},
                {"duplicates", r.duplicates},
                {"late", r.late},
                {"late_after_ms", kLateMs}};
    j["throughput"] = {{"upload_kb_per_sec", Rounded(r.uploadKBs)},
                       {"download_kb_per_sec", Rounded(r.downloadKBs)},
                       {"streams", r.streams},
                       {"seconds_per_direction", r.phaseMs / 1000.0},
                       {"slow_start_excluded_ms", r.warmupMs}};
    j["inbound"] = {{"port", r.gamePort}, {"unsolicited_reached", Optional(r.inboundReached)}};
    ordered_json notes = ordered_json::array();
    for (const auto& note : r.notes)
        notes.push_back({{"code", note.code}, {"message", note.message}});
    j["diagnostics"] = notes;
    j["retry_after_ms"] = Optional(r.retryAfterMs);
    j["path"] = PathToJson(r.path);
    return j;
}

std::string ExtendedSummaryText(const ExtendedResult& result)
{
    std::string text = "\nExtended network test\n";
    for (const auto& section : ExtendedDetails(result))
        for (const auto& line : section.lines)
            text += "  " + section.title + ": " + line + "\n";
    return text;
}

void WriteExtendedProgress(const char* phase, std::uint32_t elapsedMs, std::uint32_t totalMs)
{
    char line[160];
    int n = 0;
    if (phase == nullptr || *phase == '\0')
        n = std::snprintf(line, sizeof line, "\r\x1b[K");
    else
        n = std::snprintf(line, sizeof line, "\r\x1b[KExtended network test: %s... %us (at most %us)", phase,
                          elapsedMs / 1000, (totalMs + 999) / 1000);
    if (n > 0 && ::write(STDERR_FILENO, line, static_cast<std::size_t>(n)) < 0)
        return; // a closed terminal must not stop the measurement
}
