#pragma once
// Traces the path to the test server alongside the extended step: every hop
// from TTL 1 to the server, about one probe a second each (routers limit
// their ICMP answers to about that), the hops interleaved. The per-hop
// figures go into a PathReport; PathVerdict judges them with the echo's loss.
#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <string>

#include "PathProbe.h"
#include "PathReport.h"

struct ExtendedResult;

struct PathSettings
{
    int maxTtl = 30;
    std::uint32_t probesPerHop = 16;
    std::uint32_t burstRounds = 3;           // the routers' small burst, before the pace
    std::chrono::milliseconds burst{100};    // between the burst's rounds
    std::chrono::milliseconds round{1000};   // one probe per hop per round
    std::chrono::milliseconds discovery{40}; // between TTLs while the server is not found yet
    std::chrono::milliseconds wait{1000};    // an answer later than this is lost
};

class PathTracer
{
public:
    PathTracer(std::unique_ptr<PathProbe> probe, PathSettings settings = {})
        : m_Probe(std::move(probe)), m_Settings(settings)
    {
    }

    /// Runs until deadline at most, or until Stop(); problems go to the
    /// diagnostics and the report comes back with what was measured.
    PathReport Trace(const std::string& host, std::chrono::steady_clock::time_point deadline);
    /// Safe from another thread: no new rounds; answers still due are awaited.
    void Stop() { m_bStop = true; }
    /// Safe from another thread: a probe went unanswered so far.
    bool SawLoss() const { return m_bSawLoss; }

private:
    std::unique_ptr<PathProbe> m_Probe;
    PathSettings m_Settings;
    std::atomic<bool> m_bStop{false};
    std::atomic<bool> m_bSawLoss{false};
};

/// The tracer on a thread of its own, for the extended step: Start before the
/// other phases, Finish once they are done.
class PathTraceTask
{
public:
    void Start(const std::string& host, std::chrono::milliseconds budget);
    /// Ends the trace and judges the path with the echo's loss. Only when the
    /// echo failed and the path shows loss does it trace on, as the one
    /// measure left.
    PathReport Finish(const ExtendedResult& result);

private:
    std::unique_ptr<PathTracer> m_Tracer;
    std::future<PathReport> m_Report;
};
