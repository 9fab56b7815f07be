#pragma once
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <unordered_map>

/// A token bucket per IPv4 source address, so that forged sources cannot turn
/// the echo server into a flood towards one victim. The caller passes the time,
/// which keeps the limiter free of a clock.
class SourceRateLimiter
{
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    /// ratePerSecond 0 lets everything through. maxSources bounds the memory a
    /// flood of forged addresses can take.
    SourceRateLimiter(double ratePerSecond, double burst, std::size_t maxSources = 65536);

    /// Takes one token from the source's bucket; false when it has none.
    bool Allow(std::uint32_t source, TimePoint now);

    std::size_t GetSourceCount() const { return m_Buckets.size(); }

private:
    struct Bucket
    {
        double m_Tokens;
        TimePoint m_Last;
    };

    double Refilled(const Bucket& bucket, TimePoint now) const;
    void PruneFull(TimePoint now);

    double m_Rate;
    double m_Burst;
    std::size_t m_MaxSources;
    std::unordered_map<std::uint32_t, Bucket> m_Buckets;
};
