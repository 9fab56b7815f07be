#pragma once
// The limits every thread of the server shares: a host gets the same share
// whichever thread its connection or datagram lands on.
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <unordered_map>

#include "SourceRateLimiter.h"

/// TCP connections held at once, in all and per source address.
class ConnectionLimits
{
public:
    enum class Admission
    {
        Admitted,
        Full,      // the server holds its maximum
        SourceFull // this address holds its share
    };

    ConnectionLimits(std::uint32_t maxConnections, std::uint32_t maxPerSource);

    /// Counts the connection when it is admitted; each admitted one must be
    /// given back with Close.
    Admission TryOpen(std::uint32_t source);
    /// Counts one beyond the source's share (its place is being freed by an
    /// eviction); false when the server is full.
    bool OpenBeyondShare(std::uint32_t source);
    void Close(std::uint32_t source);

private:
    std::mutex m_Mutex;
    const std::uint32_t m_Max;
    const std::uint32_t m_MaxPerSource;
    std::uint32_t m_Open = 0;
    std::unordered_map<std::uint32_t, std::uint32_t> m_PerSource;
};

/// Which pings get a pong: a token bucket per source address, so no single
/// address is flooded, and one for all sources together, so that pings
/// forged from many addresses cannot make the server a traffic source.
class PongAdmission
{
public:
    using TimePoint = SourceRateLimiter::TimePoint;
    enum class Verdict : std::uint8_t
    {
        Allowed,
        SourceLimited,
        BudgetSpent
    };

    /// Rates in pongs per second; 0 lets everything through. The global
    /// bucket holds one second's worth.
    PongAdmission(double perSource, double perSourceBurst, double global);

    /// Decides for a whole batch under one lock.
    void Decide(const std::uint32_t* pSources, Verdict* pVerdicts, std::size_t nCount, TimePoint now);

private:
    std::mutex m_Mutex;
    SourceRateLimiter m_PerSource;
    SourceRateLimiter m_Global; // one bucket, under source 0
};
