#include "PathTracer.h"

#include <algorithm>
#include <cstdio>
#include <map>

#include "Diagnostics.h"
#include "ExtendedResult.h"
#include "PathVerdict.h"
#include "share/common/StringUtil.h"

namespace
{
using Clock = std::chrono::steady_clock;

struct SentProbe
{
    int ttl = 0;
    Clock::time_point at;
    bool bAnswered = false;
    double rttMs = 0.0;
    std::uint32_t from = 0;
};

std::string Dotted(std::uint32_t a)
{
    char text[16];
    std::snprintf(text, sizeof text, "%u.%u.%u.%u", a >> 24, a >> 16 & 255, a >> 8 & 255, a & 255);
    return text;
}

void Warn(const char* code, const std::string& message)
{
    GetDiagnostics().Add(code, zul::ToWide(message));
}

// Where the schedule stands: round 0 walks the TTLs until the server answers,
// later rounds probe every hop up to it once, spread over the round.
constexpr std::chrono::milliseconds kPathExtraMs{2000}, kPathLimitMs{14000};
constexpr std::chrono::milliseconds kRefusedRetry{10};

struct Cursor
{
    std::uint32_t round = 0;
    int ttl = 1;
};
} // namespace

PathReport PathTracer::Trace(const std::string& host, Clock::time_point deadline)
{
    PathReport report;
    report.target = host;
    const auto target = ParseIPv4(host);
    if (!target)
    {
        Warn("path_bad_host", "The path to the test server was not traced: \"" + host +
                                  "\" is not an IPv4 address in dotted form.");
        return report;
    }
    if (const auto error = m_Probe->Open(*target))
    {
        Warn(error->code.c_str(), "The path to the test server was not traced: " + error->message);
        return report;
    }
    report.ran = true;

    const PathSettings& s = m_Settings;
    std::vector<SentProbe> sent;
    std::optional<int> distance;
    const Clock::time_point start = Clock::now();
    Cursor cursor;
    auto limit = [&] { return distance ? std::min(*distance, s.maxTtl) : s.maxTtl; };
    auto sendAt = [&](const Cursor& c)
    {
        if (c.round == 0)
            return start + s.discovery * (c.ttl - 1);
        const auto spacing = std::min<Clock::duration>(s.discovery, s.round / limit());
        const std::uint32_t burst = std::min(c.round, s.burstRounds);
        return start + s.burst * burst + s.round * (c.round - burst) + spacing * (c.ttl - 1);
    };
    bool bSending = true;
    Clock::time_point lastSent = start;
    // Bounded by the deadline; every pass either sends, or waits on the probe.
    while (true)
    {
        const auto now = Clock::now();
        Clock::time_point until = deadline;
        if (bSending)
        {
            if (cursor.ttl > limit())
                cursor = {cursor.round + 1, 1};
            const auto at = sendAt(cursor);
            if (m_bStop || cursor.round >= s.probesPerHop || at + s.wait > deadline || sent.size() >= 0xFFFF)
                bSending = false;
            else if (at <= now)
            {
                const auto seq = static_cast<std::uint16_t>(sent.size());
                const Clock::time_point at = Clock::now();
                if (m_Probe->Send(cursor.ttl, seq))
                {
                    sent.push_back({cursor.ttl, at});
                    lastSent = at;
                    ++cursor.ttl;
                    continue;
                }
                // Refused (the system's queue of pending probes is full, as
                // when rounds fall due together): never sent, so no loss. The
                // same hop goes again once answers or time-outs make room.
                if (at - lastSent > 2 * s.wait)
                    bSending = false;
                else
                    until = std::min(deadline, at + kRefusedRetry);
            }
            else
                until = at;
        }
        if (!bSending)
        {
            const bool bPending =
                std::any_of(sent.begin(), sent.end(),
                            [&](const SentProbe& p) { return !p.bAnswered && now < p.at + s.wait; });
            if (!bPending || now >= deadline)
                break;
            until = std::min(deadline, lastSent + s.wait);
        }
        for (const SentProbe& p : sent)
            if (!p.bAnswered && now >= p.at + s.wait && (!distance || p.ttl <= *distance))
                m_bSawLoss = true;
        for (const PathProbeAnswer& answer : m_Probe->Receive(until))
        {
            if (answer.seq >= sent.size())
                continue;
            SentProbe& probe = sent[answer.seq];
            if (probe.bAnswered || answer.at - probe.at > s.wait)
                continue;
            probe.bAnswered = true;
            probe.from = answer.from;
            probe.rttMs = std::chrono::duration<double, std::milli>(answer.at - probe.at).count();
            if (answer.bFromTarget || answer.from == *target)
                distance = std::min(distance.value_or(probe.ttl), probe.ttl);
        }
    }

    int last = 0;
    for (const SentProbe& p : sent)
        if (p.bAnswered && (!distance || p.ttl <= *distance))
            last = std::max(last, p.ttl);
    report.reached = distance.has_value();
    if (distance)
        last = *distance;
    for (int ttl = 1; ttl <= last; ++ttl)
    {
        PathHop hop;
        hop.ttl = ttl;
        std::vector<double> rtts;
        std::map<std::uint32_t, int> from;
        for (const SentProbe& p : sent)
        {
            if (p.ttl != ttl)
                continue;
            ++hop.sent;
            if (!p.bAnswered)
                continue;
            ++hop.answered;
            rtts.push_back(p.rttMs);
            ++from[p.from];
        }
        if (!rtts.empty())
        {
            std::sort(rtts.begin(), rtts.end());
            hop.rttMinMs = rtts.front();
            hop.rttP50Ms = rtts[(rtts.size() - 1) / 2];
            hop.rttMaxMs = rtts.back();
            const auto most = std::max_element(
                from.begin(), from.end(), [](const auto& a, const auto& b) { return a.second < b.second; });
            hop.address = Dotted(most->first);
        }
        hop.lossPercent = hop.sent == 0 ? 0.0 : 100.0 * (hop.sent - hop.answered) / hop.sent;
        report.probesPerHop = std::max(report.probesPerHop, hop.sent);
        report.hops.push_back(std::move(hop));
    }

    if (sent.empty())
        return report;
    if (last == 0)
        Warn("path_no_answer", "Nothing on the way to the test server " + host +
                                   " answered the path probes, up to " + std::to_string(s.maxTtl) +
                                   " hops: where loss begins is not known.");
    else if (!distance)
        Warn("path_not_reached", "The test server " + host + " never answered the path probes, up to " +
                                     std::to_string(s.maxTtl) + " hops (the last hop that answered was hop " +
                                     std::to_string(last) +
                                     "); loss is judged from the extended echo alone.");
    return report;
}

void PathTraceTask::Start(const std::string& host, std::chrono::milliseconds budget)
{
    m_Tracer = std::make_unique<PathTracer>(MakePathProbe());
    // Past the other phases only when they failed (see Finish); the whole
    // step still ends within 15 s.
    const auto deadline =
        Clock::now() + std::min<std::chrono::milliseconds>(budget + kPathExtraMs, kPathLimitMs);
    m_Report = std::async(std::launch::async, [tracer = m_Tracer.get(), host, deadline]
                          { return tracer->Trace(host, deadline); });
}

PathReport PathTraceTask::Finish(const ExtendedResult& result)
{
    if (!m_Tracer)
        return {};
    // Done with the other phases; only when the echo failed and the path
    // already shows loss is the path the one measure left, and goes on.
    if (result.failure.empty() || !m_Tracer->SawLoss())
        m_Tracer->Stop();
    PathReport report = m_Report.get();
    std::optional<double> endToEnd;
    if (result.failure.empty() && result.lossUpPercent && result.lossDownPercent)
        endToEnd =
            100.0 * (1.0 - (1.0 - *result.lossUpPercent / 100.0) * (1.0 - *result.lossDownPercent / 100.0));
    else if (result.failure.empty() && result.sent > 0)
        endToEnd = 100.0 * (result.sent - result.answered) / result.sent;
    if (report.ran)
        JudgePath(report, endToEnd);
    return report;
}
