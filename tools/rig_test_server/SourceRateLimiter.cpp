#include "SourceRateLimiter.h"

#include <algorithm>

SourceRateLimiter::SourceRateLimiter(double ratePerSecond, double burst, std::size_t maxSources)
    : m_Rate(ratePerSecond), m_Burst(burst), m_MaxSources(maxSources)
{
}

double SourceRateLimiter::Refilled(const Bucket& bucket, TimePoint now) const
{
    const double seconds = std::chrono::duration<double>(now - bucket.m_Last).count();
    return std::min(m_Burst, bucket.m_Tokens + std::max(0.0, seconds) * m_Rate);
}

void SourceRateLimiter::PruneFull(TimePoint now)
{
    // A full bucket behaves exactly like a source never seen, so it can go.
    std::erase_if(m_Buckets, [&](const auto& entry) { return Refilled(entry.second, now) >= m_Burst; });
}

bool SourceRateLimiter::Allow(std::uint32_t source, TimePoint now)
{
    if (m_Rate <= 0.0)
        return true;
    auto it = m_Buckets.find(source);
    if (it == m_Buckets.end())
    {
        if (m_Buckets.size() >= m_MaxSources)
            PruneFull(now);
        // With the table still full every source is busy: refusing newcomers
        // keeps memory bounded and never amplifies a flood.
        if (m_Buckets.size() >= m_MaxSources)
            return false;
        it = m_Buckets.emplace(source, Bucket{m_Burst, now}).first;
    }
    Bucket& bucket = it->second;
    bucket.m_Tokens = Refilled(bucket, now);
    bucket.m_Last = now;
    if (bucket.m_Tokens < 1.0)
        return false;
    bucket.m_Tokens -= 1.0;
    return true;
}
