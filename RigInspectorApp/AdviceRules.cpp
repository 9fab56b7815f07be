// The advice rules, kept as data: what each item says, when it applies and
// which figures it rests on. The first rows of a severity rank first.
#include <algorithm>

#include "Advice.h"
#include "share/common/StringUtil.h"

namespace
{
// A Wi-Fi link below this signal quality drops and delays packets in bursts.
constexpr int kWeakWifiPercent = 50;
// Packet-to-packet delay variation a game's smoothing no longer hides.
constexpr double kHighJitterMs = 10.0;

using E = std::vector<Evidence>;

Evidence Phrase(std::string key, std::string text)
{
    return {std::move(key), std::move(text), true};
}

Evidence Figure(std::string key, Evidence::Figure value)
{
    return {std::move(key), std::move(value), false};
}

bool HasCode(const Findings& f, const char* code)
{
    return std::find(f.diagnosticCodes.begin(), f.diagnosticCodes.end(), code) != f.diagnosticCodes.end();
}

bool LossStarts(const Findings& f, bool bInHome)
{
    return f.path && f.path->lossStartsAtHop && f.path->lossStartsInHome == bInHome;
}

/// The address of the hop where loss begins; "no answer" for a silent hop.
std::string LossHopAddress(const PathReport& path)
{
    for (const PathHop& hop : path.hops)
    {
        if (path.lossStartsAtHop && hop.ttl == *path.lossStartsAtHop && hop.address)
            return *hop.address;
    }
    return "no answer";
}

void AddLossHop(E& e, const Findings& f)
{
    if (!f.path || !f.path->lossStartsAtHop)
        return;
    e.push_back(Figure("loss_starts_at_hop", static_cast<std::int64_t>(*f.path->lossStartsAtHop)));
    e.push_back(Figure("hop_address", LossHopAddress(*f.path)));
    if (f.path->lossStartsInHome)
        e.push_back(Figure("loss_starts_in_home", *f.path->lossStartsInHome));
}

std::optional<double> ExtendedLoss(const Findings& f)
{
    std::optional<double> loss;
    for (const std::optional<double>& l : {f.lossUpPercent, f.lossDownPercent})
        if (l && (!loss || *l > *loss))
            loss = l;
    return loss;
}

bool UdpLossWhileInboundReaches(const Findings& f)
{
    const std::optional<double> extended = ExtendedLoss(f);
    return f.inboundReached == true && ((f.udpRan && f.udpLost > 0) || (extended && *extended > 0.0));
}

E UdpLossEvidence(const Findings& f)
{
    E e;
    if (f.udpRan)
        e.push_back(Figure("udp_loss_percent", f.udpLossPercent));
    if (f.lossUpPercent)
        e.push_back(Figure("loss_up_percent", *f.lossUpPercent));
    if (f.lossDownPercent)
        e.push_back(Figure("loss_down_percent", *f.lossDownPercent));
    e.push_back(Figure("inbound_reached", true));
    AddLossHop(e, f);
    const double shown = f.udpRan && f.udpLost > 0 ? f.udpLossPercent : ExtendedLoss(f).value_or(0.0);
    e.push_back(Figure("loss_percent", shown));
    std::string where = "Where on the way the loss begins is not known.";
    if (LossStarts(f, true))
        where = "The loss begins inside your home network, at hop " +
                std::to_string(*f.path->lossStartsAtHop) + " (" + LossHopAddress(*f.path) + ").";
    else if (LossStarts(f, false))
        where = "The loss begins beyond your home network, at hop " +
                std::to_string(*f.path->lossStartsAtHop) + " (" + LossHopAddress(*f.path) +
                "), on your provider's side or further on.";
    e.push_back(Phrase("where", where));
    return e;
}

E LossHopEvidence(const Findings& f)
{
    E e;
    AddLossHop(e, f);
    return e;
}

E BufferbloatEvidence(const Findings& f)
{
    return {Figure("grade", f.grade), Figure("latency_increase_ms", f.increaseMs.value_or(0.0))};
}

bool OnWifi(const Findings& f)
{
    return f.connection && f.connection->type == ConnectionType::Wifi;
}

E WifiSignalEvidence(const Findings& f)
{
    return {Figure("interface", f.connection->interfaceName),
            Figure("wifi_signal_percent", static_cast<std::int64_t>(*f.connection->wifiSignalPercent))};
}

E WifiJitterEvidence(const Findings& f)
{
    return {Figure("interface", f.connection->interfaceName), Figure("jitter_ms", *f.jitterMs)};
}

E TunnelEvidence(const Findings& f)
{
    return {Figure("interface", f.connection->interfaceName),
            Figure("connection_type", std::string(ConnectionTypeName(f.connection->type)))};
}

E PongPortEvidence(const Findings& f)
{
    E e{Figure("port", static_cast<std::int64_t>(f.pongPort))};
    std::string holders;
    for (const PortOwner& owner : f.pongPortOwners)
    {
        const std::string pid = std::to_string(owner.pid);
        const std::string name = zul::Utf16ToUtf8(owner.executable);
        holders += (holders.empty() ? "" : ", ") +
                   (name.empty() ? "process " + pid : name + " (process " + pid + ")");
        e.push_back(Figure("held_by", name.empty() ? "process " + pid : name));
    }
    e.push_back(
        Phrase("holders", holders.empty() ? "another program that the system does not name" : holders));
    return e;
}

std::string GpuName(const Findings& f)
{
    return f.gpu && !f.gpu->name.empty() ? " (" + f.gpu->name + ")" : "";
}

bool IntegratedOnly(const Findings& f)
{
    return (f.gpu && f.gpu->integrated) || HasCode(f, "video_integrated_only");
}

E VideoEvidence(const Findings& f)
{
    E e{Figure("video_memory_mb", static_cast<std::int64_t>(f.videoMb)),
        Figure("min_video_memory_mb", static_cast<std::int64_t>(f.minVideoMb)), Phrase("gpu", GpuName(f))};
    if (f.gpu && !f.gpu->name.empty())
        e.push_back(Figure("gpu_name", f.gpu->name));
    return e;
}

E DriverEvidence(const Findings& f)
{
    E e{Phrase("gpu", GpuName(f))};
    if (f.gpu && !f.gpu->name.empty())
        e.push_back(Figure("gpu_name", f.gpu->name));
    if (HasCode(f, "video_probe_failed"))
        e.push_back(Figure("video_probe_failed", true));
    return e;
}
} // namespace

// clang-format off
const std::vector<AdviceRule> kAdviceRules = {
    {"pong_port_held", Severity::Problem,
     [](const Findings& f) { return f.pongPortHeld; },
     "Port {port} is held by {holders}, so the echo test could not receive a single answer. Close that "
     "program and run the check again.",
     PongPortEvidence},
    {"udp_loss_not_port_forwarding", Severity::Problem,
     UdpLossWhileInboundReaches,
     "{loss_percent}% of UDP packets were lost, yet packets the server sent unasked reached your game port: "
     "your router and firewall already let the game in, so port forwarding will not help. {where}",
     UdpLossEvidence},
    {"loss_starts_in_home_network", Severity::Problem,
     [](const Findings& f) { return LossStarts(f, true); },
     "Packets start to get lost at hop {loss_starts_at_hop} ({hop_address}), inside your home network. Check "
     "the cable or Wi-Fi between this PC and the router, and restart the router.",
     LossHopEvidence},
    {"loss_starts_beyond_home_network", Severity::Problem,
     [](const Findings& f) { return LossStarts(f, false); },
     "Packets start to get lost at hop {loss_starts_at_hop} ({hop_address}), beyond your home network, so "
     "nothing on this PC or your router can fix it. Tell your internet provider, naming that hop.",
     LossHopEvidence},
    {"gpu_integrated_only", Severity::Problem,
     IntegratedOnly,
     "The only graphics{gpu} is built into the processor and has no memory of its own; the game needs a "
     "graphics card with {min_video_memory_mb} MB.",
     VideoEvidence},
    {"gpu_not_found", Severity::Problem,
     [](const Findings& f) { return f.systemRan && !f.videoProbeOk && !f.gpu && HasCode(f, "video_no_gpu_device"); },
     "No graphics card was found. If this PC has one, install its driver from the card's maker; the game needs a "
     "card with at least {min_video_memory_mb} MB of video memory.",
     [](const Findings& f) -> E {
         return {Figure("min_video_memory_mb", static_cast<std::int64_t>(f.minVideoMb)),
                 Figure("video_no_gpu_device", true)};
     }},
    {"gpu_below_minimum", Severity::Problem,
     [](const Findings& f) { return f.systemRan && f.videoProbeOk && !f.videoPassed && !IntegratedOnly(f); },
     "The graphics card{gpu} has {video_memory_mb} MB of video memory; the game needs {min_video_memory_mb} MB.",
     VideoEvidence},
    {"cpu_below_minimum", Severity::Problem,
     [](const Findings& f) { return f.systemRan && !f.cpuPassed; },
     "The processor runs at {cpu_mhz} MHz; the game needs {min_cpu_mhz} MHz.",
     [](const Findings& f) -> E {
         return {Figure("cpu_mhz", static_cast<std::int64_t>(f.cpuMhz)),
                 Figure("min_cpu_mhz", static_cast<std::int64_t>(f.minCpuMhz))};
     }},
    {"memory_below_minimum", Severity::Problem,
     [](const Findings& f) { return f.systemRan && !f.memoryPassed; },
     "This PC has {memory_mb} MB of memory; the game needs {min_memory_mb} MB.",
     [](const Findings& f) -> E {
         return {Figure("memory_mb", static_cast<std::int64_t>(f.memoryMb)),
                 Figure("min_memory_mb", static_cast<std::int64_t>(f.minMemoryMb))};
     }},
    {"bufferbloat", Severity::Warning,
     [](const Findings& f) { return f.grade == "C" || f.grade == "D" || f.grade == "F"; },
     "Your delay grows by {latency_increase_ms} ms while the line is busy (grade {grade}). Turn on smart queue "
     "management (SQM) on your router, or pause uploads and downloads while playing.",
     BufferbloatEvidence},
    {"wifi_weak_signal", Severity::Warning,
     [](const Findings& f) {
         return OnWifi(f) && f.connection->wifiSignalPercent && *f.connection->wifiSignalPercent < kWeakWifiPercent;
     },
     "The Wi-Fi signal is weak ({wifi_signal_percent}%). A network cable to the router gives a steadier game; "
     "otherwise move closer to the router.",
     WifiSignalEvidence},
    {"wifi_high_jitter", Severity::Warning,
     [](const Findings& f) { return OnWifi(f) && f.jitterMs && *f.jitterMs >= kHighJitterMs; },
     "Over Wi-Fi, the delay changes by {jitter_ms} ms from one packet to the next. A network cable to the "
     "router removes most of that.",
     WifiJitterEvidence},
    {"vpn_or_tunnel", Severity::Warning,
     [](const Findings& f) { return f.connection && f.connection->vpnOrTunnel; },
     "The way to the test server goes through a VPN or tunnel ({interface}), which adds delay and can lose "
     "packets. Turn it off while playing if you can.",
     TunnelEvidence},
    {"gpu_driver_unknown", Severity::Warning,
     [](const Findings& f) {
         return (f.gpu && f.gpu->driverVersion.empty()) || HasCode(f, "video_probe_failed");
     },
     "The graphics driver{gpu} did not tell its version. Install the current driver from the maker of the "
     "graphics card.",
     DriverEvidence},
};
// clang-format on
