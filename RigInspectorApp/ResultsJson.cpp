#include "ResultsJson.h"

#include <cstdio>

#include "RigInspectorApp/FindingsJson.h"
#include "RigInspectorApp/InspectorDlg.h"
#include "RigVersion.h"
#include "share/common/StringUtil.h"

using nlohmann::ordered_json;

namespace
{
bool SystemPassed(const SystemResult& r)
{
    return r.osPassed && r.cpuPassed && r.videoProbeOk && r.videoPassed && r.memoryPassed;
}

const char* Verdict(bool bRan, bool bPassed)
{
    if (!bRan)
        return "not_run";
    return bPassed ? "passed" : "failed";
}

/// A round-trip figure, or null when no answer came to measure it by.
ordered_json PingMs(const UdpResult& r, std::int32_t ms)
{
    return r.answered <= 0 || ms < 0 ? ordered_json(nullptr) : ordered_json(ms);
}

template <class T> ordered_json Optional(const std::optional<T>& value)
{
    return value ? ordered_json(*value) : ordered_json(nullptr);
}
} // namespace

bool AllChecksPassed(const CheckResults& r)
{
    return (!r.system.ran || SystemPassed(r.system)) && (!r.firewall.ran || r.firewall.passed) &&
           (!r.tcp.ran || r.tcp.passed) && (!r.udp.ran || r.udp.passed) && (!r.ports.ran || r.ports.passed);
}

int CheckExitStatus(const CheckResults& results)
{
    return AllChecksPassed(results) ? 0 : 1;
}

ordered_json ResultsToJson(const CheckResults& r, const RunOutcome& outcome)
{
    ordered_json j;
    j["tool"] = "rig_inspector_cli";
    j["version"] = RIG_VERSION_SHORT;
    j["passed"] = AllChecksPassed(r);

    j["measured"] = {{"cpu_speed_mhz", outcome.cpuSpeedMhz},
                     {"video_memory_mb", outcome.videoMemoryMb},
                     {"system_memory_mb", outcome.systemMemoryMb},
                     {"system_memory_bytes", r.system.systemMemoryBytes},
                     {"video_memory_bytes", r.system.gpu ? r.system.gpu->memoryBytes : 0}};
    j["connection"] = ConnectionToJson(r.connection);
    j["gpu"] = GpuToJson(r.system.gpu);

    const SystemResult& s = r.system;
    ordered_json& checks = j["checks"];
    checks["system"] = {
        {"verdict", Verdict(s.ran, SystemPassed(s))},
        {"os", {{"verdict", Verdict(s.ran, s.osPassed)}}},
        {"cpu",
         {{"verdict", Verdict(s.ran, s.cpuPassed)},
          {"heading_mhz", s.cpuHeadingMhz},
          {"speed_mhz", s.cpuSpeedMhz}}},
        {"video",
         {{"verdict", !s.ran            ? "not_run"
                      : !s.videoProbeOk ? "error"
                      : s.videoPassed   ? "passed"
                                        : "failed"},
          {"probe_ok", s.videoProbeOk},
          {"memory_mb", s.videoMemoryMb}}},
        {"memory",
         {{"verdict", Verdict(s.ran, s.memoryPassed)},
          {"memory_mb", s.systemMemoryMb},
          {"memory_bytes", s.systemMemoryBytes}}},
    };

    const FirewallResult& f = r.firewall;
    char hresult[16];
    std::snprintf(hresult, sizeof hresult, "0x%08x", static_cast<unsigned>(f.comHresult));
    checks["firewall"] = {
        {"verdict", Verdict(f.ran, f.passed)},
        {"com_failed", f.comFailed},
        {"com_hresult", hresult},
        {"profile_found", f.profileFound},
        {"firewall_off_offered", f.result == 3},
        {"result", f.result},
    };

    const TcpResult& t = r.tcp;
    checks["tcp"] = {
        {"verdict", Verdict(t.ran, t.passed)},
        {"connected", t.connected},
        {"upload_completed", t.uploadCompleted},
        {"download_completed", t.downloadCompleted},
        {"upload_bytes", t.uploadBytes},
        {"download_bytes", t.downloadBytes},
        {"upload_kb_per_sec", t.uploadKBs},
        {"download_kb_per_sec", t.downloadKBs},
        {"upload_bytes_per_sec", t.uploadBytesPerSec},
        {"download_bytes_per_sec", t.downloadBytesPerSec},
        {"failure", t.failure.empty() ? ordered_json(nullptr) : ordered_json(zul::Utf16ToUtf8(t.failure))},
    };

    const UdpResult& u = r.udp;
    checks["udp"] = {
        {"verdict", Verdict(u.ran, u.passed)},
        {"sent", u.sent},
        {"answered", u.answered},
        {"lost", u.lost},
        {"loss_percent", u.lossPercent},
        {"min_ping_ms", PingMs(u, u.minPingMs)},
        {"avg_ping_ms", PingMs(u, u.avgPingMs)},
        {"max_ping_ms", PingMs(u, u.maxPingMs)},
        {"ignored_datagrams", u.ignored},
        {"refused",
         {{"malformed", u.malformed},
          {"unknown_sequence", u.unknownSequence},
          {"bad_round_trip", u.badRoundTrip}}},
        {"duplicate_pongs", u.duplicates},
        {"pong_port_bound", u.pongPortBound},
        {"failure", u.failure.empty() ? ordered_json(nullptr) : ordered_json(zul::Utf16ToUtf8(u.failure))},
    };

    const PortsResult& p = r.ports;
    checks["ports"] = {
        {"verdict", Verdict(p.ran, p.passed)},
        {"first_port", p.firstPort},
        {"end_port", p.endPort},
        {"probed", p.probed},
        {"busy_ports", p.busyPorts},
    };

    const GraphicRecommendation rec =
        RecommendGraphicOptions(outcome.cpuSpeedMhz, outcome.videoMemoryMb, outcome.systemMemoryMb);
    j["recommendation"] = {{"tier", TierName(rec.tier)},
                           {"char_lod", rec.charHigh ? 1 : 0},
                           {"shadow", rec.shadowHigh ? 1 : 0},
                           {"audience", rec.spectatorsHigh ? 1 : 0},
                           {"event_screen", rec.pipHigh ? 1 : 0}};
    j["options_written"] = Optional(outcome.optionsWritten);
    j["patcher"] = {{"requested", outcome.patcherRequested}, {"started", Optional(outcome.patcherStarted)}};
    ordered_json& diagnostics = j["diagnostics"] = ordered_json::array();
    for (const Diagnostic& d : outcome.diagnostics)
        diagnostics.push_back({{"code", d.code}, {"message", zul::Utf16ToUtf8(d.message)}});
    return j;
}
