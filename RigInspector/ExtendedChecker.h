#pragma once
// The extended network-quality step: latency idle and under load, loss by
// direction, jitter, multi-stream throughput and inbound reachability,
// against rig_test_server's extended service. Runs on the calling thread,
// blocking, within budgetMs.
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "ExtendedResult.h"

struct ExtendedSettings
{
    std::string host = "127.0.0.1";
    std::uint16_t port = 9997;      // the server's extended UDP and TCP port
    std::uint16_t gamePort = 20000; // where the unsolicited datagram is aimed
    std::uint32_t intervalMs = 20;  // game pace
    std::uint32_t idleProbes = 100;
    std::uint32_t phaseMs = 3500;  // each throughput direction
    std::uint32_t warmupMs = 1000; // slow start, left out of the rate
    std::uint32_t tailMs = 700;    // for the last echoes to come back
    std::uint32_t streams = 4;
    std::uint32_t budgetMs = 11500;
    std::string localAddress; // IPv4 to send from; empty: the system's choice
};

/// How often to ask for the unsolicited datagram: enough that, at the
/// measured upstream loss, every request is lost at most once in a thousand
/// runs (3 to 10; 10 when that loss is not known).
int InboundTries(std::optional<double> lossUpPercent);

/// What the inbound test may say after sent requests: reached when the
/// datagram came; not reached only when losing every request on the way was
/// unlikely (under one in a thousand); otherwise not known.
std::optional<bool> InboundVerdict(bool bArrived, int sent, std::optional<double> lossUpPercent);

class ExtendedChecker
{
public:
    /// phase: a short description of what runs now; elapsed and total in ms.
    using Progress = std::function<void(const char* phase, std::uint32_t elapsedMs, std::uint32_t totalMs)>;

    explicit ExtendedChecker(ExtendedSettings settings) : m_Settings(std::move(settings)) {}
    ExtendedResult Run(const Progress& progress = {});

private:
    ExtendedSettings m_Settings;
};
