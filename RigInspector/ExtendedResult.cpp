#include "ExtendedResult.h"
#include "PathVerdict.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

const GradeBand kGradeBands[6] = {{"A+", 5.0},  {"A", 30.0},  {"B", 60.0},
                                  {"C", 200.0}, {"D", 400.0}, {"F", INFINITY}};

std::string GradeFor(double increaseMs)
{
    for (const auto& band : kGradeBands)
        if (increaseMs <= band.maxIncreaseMs)
            return band.grade;
    return "F";
}

std::optional<double> Percentile(std::vector<double> samples, double q)
{
    if (samples.empty())
        return std::nullopt;
    std::sort(samples.begin(), samples.end());
    const auto rank = static_cast<std::size_t>(std::ceil(q * static_cast<double>(samples.size())));
    return samples[std::clamp<std::size_t>(rank, 1, samples.size()) - 1];
}

void ProbeLog::OnSent(std::uint32_t seq, ProbePhase phase, std::int64_t sentUs)
{
    if (m_Probes.size() <= seq)
        m_Probes.resize(seq + 1, Probe{ProbePhase::Idle, -1});
    m_Probes[seq] = Probe{phase, sentUs};
}

bool ProbeLog::OnEcho(std::uint32_t seq, std::int64_t sentUs, std::int64_t receivedUs)
{
    if (seq >= m_Probes.size() || m_Probes[seq].sentUs != sentUs || sentUs < 0)
        return false;
    Probe& probe = m_Probes[seq];
    if (probe.answered)
    {
        ++m_Duplicates;
        return true;
    }
    probe.answered = true;
    ++m_Answered;
    const double rttMs = static_cast<double>(receivedUs - sentUs) / 1000.0;
    probe.rttMs = rttMs;
    if (rttMs > kLateMs)
        ++m_Late;
    if (m_HighestSeq && seq < *m_HighestSeq)
        ++m_Reordered;
    else
        m_HighestSeq = seq;
    // RFC 3550 interarrival jitter, with the round trip as the transit time:
    // both ends of it are on this machine's clock.
    if (m_LastTransitMs)
    {
        m_Jitter += (std::fabs(rttMs - *m_LastTransitMs) - m_Jitter) / 16.0;
        m_bJitter = true;
    }
    m_LastTransitMs = rttMs;
    return true;
}

void ProbeLog::Unload(std::uint32_t fromSeq, std::uint32_t toSeq)
{
    for (std::uint32_t seq = fromSeq; seq < toSeq && seq < m_Probes.size(); ++seq)
        if (m_Probes[seq].phase == ProbePhase::Loaded)
            m_Probes[seq].phase = ProbePhase::Unloaded;
}

namespace
{
LatencyFigures Figures(const std::vector<double>& rtt)
{
    LatencyFigures figures;
    figures.samples = static_cast<std::uint32_t>(rtt.size());
    figures.p50 = Percentile(rtt, 0.5);
    figures.p90 = Percentile(rtt, 0.9);
    if (!rtt.empty())
        figures.min = *std::min_element(rtt.begin(), rtt.end());
    return figures;
}

double Percent(std::uint32_t part, std::uint32_t whole)
{
    return whole == 0 ? 0.0 : 100.0 * part / whole;
}
} // namespace

void ProbeLog::Summarize(ExtendedResult& result, std::optional<std::uint32_t> serverReceived) const
{
    std::vector<double> rtt[2]; // idle, loaded
    for (const Probe& probe : m_Probes)
        if (probe.answered && probe.phase != ProbePhase::Unloaded)
            rtt[probe.phase == ProbePhase::Idle ? 0 : 1].push_back(probe.rttMs);
    result.idle = Figures(rtt[0]);
    result.loaded = Figures(rtt[1]);
    result.loaded.min.reset();
    if (result.idle.p50 && result.loaded.p50)
    {
        result.increaseMs = std::max(0.0, *result.loaded.p50 - *result.idle.p50);
        result.grade = GradeFor(*result.increaseMs);
    }
    result.sent = static_cast<std::uint32_t>(
        std::count_if(m_Probes.begin(), m_Probes.end(), [](const Probe& p) { return p.sentUs >= 0; }));
    result.answered = m_Answered;
    result.reordered = m_Reordered;
    result.duplicates = m_Duplicates;
    result.late = m_Late;
    if (m_bJitter)
        result.jitterMs = m_Jitter;
    result.serverReceived = serverReceived;
    if (serverReceived)
    {
        // The server can have counted no more than was sent, and echoed no
        // more than it counted; a stray figure must not read as negative loss.
        const std::uint32_t reached = std::min(*serverReceived, result.sent);
        result.lossUpPercent = Percent(result.sent - reached, result.sent);
        result.lossDownPercent = Percent(reached - std::min(m_Answered, reached), reached);
    }
}

namespace
{
std::string Format(const char* format, auto... args)
{
    char buffer[256];
    std::snprintf(buffer, sizeof buffer, format, args...);
    return buffer;
}

std::string Ms(const std::optional<double>& value)
{
    return value ? Format("%.1f ms", *value) : std::string("-");
}

std::string Rate(const std::optional<double>& kbs)
{
    return kbs ? Format("%.0f KB/s", *kbs) : std::string("not measured");
}
} // namespace

std::vector<ExtendedSection> ExtendedDetails(const ExtendedResult& r)
{
    if (!r.ran)
        return {};
    std::vector<std::string> throughputNotes;
    for (const auto& note : r.notes)
        throughputNotes.push_back(note.message);
    std::vector<ExtendedSection> out;
    const auto addPath = [&]
    {
        if (r.path && r.path->ran)
            out.push_back({"Path", PathDetailLines(*r.path)});
        return out;
    };
    if (!r.failure.empty())
    {
        out.push_back({"Extended network test", {"Not measured: " + r.failure}});
        return addPath();
    }
    out.push_back({"Latency",
                   {Format("Idle: %s median, %s 90th percentile, %s best (%u probes)", Ms(r.idle.p50).c_str(),
                           Ms(r.idle.p90).c_str(), Ms(r.idle.min).c_str(), r.idle.samples),
                    Format("Under load: %s median, %s 90th percentile (%u probes)", Ms(r.loaded.p50).c_str(),
                           Ms(r.loaded.p90).c_str(), r.loaded.samples),
                    r.grade.empty() ? std::string("Bufferbloat grade: not measured")
                                    : Format("Bufferbloat grade: %s (+%.1f ms under load)", r.grade.c_str(),
                                             *r.increaseMs)}});
    auto percent = [](const std::optional<double>& value)
    { return value ? Format("%.1f %%", *value) : std::string("unknown"); };
    out.push_back({"Packets",
                   {Format("%u probes sent; loss %s on the way out, %s on the way back", r.sent,
                           percent(r.lossUpPercent).c_str(), percent(r.lossDownPercent).c_str()),
                    Format("Jitter %s; %u reordered, %u duplicated, %u late (over %.0f ms)",
                           Ms(r.jitterMs).c_str(), r.reordered, r.duplicates, r.late, kLateMs)}});
    out.push_back(
        {"Throughput",
         {Format("Download %s, upload %s (%u streams, %.1f s each way)", Rate(r.downloadKBs).c_str(),
                 Rate(r.uploadKBs).c_str(), r.streams, r.phaseMs / 1000.0)}});
    out.back().lines.insert(out.back().lines.end(), throughputNotes.begin(), throughputNotes.end());
    std::string inbound;
    if (!r.inboundReached && r.inboundUnknown)
        inbound =
            Format("Whether unsolicited datagrams reach UDP port %u is not known: the requests for them "
                   "may all have been lost",
                   r.gamePort);
    else if (!r.inboundReached)
        inbound = Format("UDP port %u was busy here: not tested", r.gamePort);
    else if (*r.inboundReached)
        inbound = Format("Unsolicited datagrams reach UDP port %u: no port forwarding needed", r.gamePort);
    else
        inbound =
            Format("Unsolicited datagrams do not reach UDP port %u: forward the game's ports", r.gamePort);
    out.push_back({"Inbound", {inbound}});
    return addPath();
}
