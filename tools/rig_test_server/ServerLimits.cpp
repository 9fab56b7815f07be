#include "ServerLimits.h"

#include <algorithm>

ConnectionLimits::ConnectionLimits(std::uint32_t maxConnections, std::uint32_t maxPerSource)
    : m_Max(maxConnections), m_MaxPerSource(maxPerSource)
{
}

ConnectionLimits::Admission ConnectionLimits::TryOpen(std::uint32_t source)
{
    std::lock_guard lock(m_Mutex);
    if (m_Open >= m_Max)
        return Admission::Full;
    std::uint32_t& held = m_PerSource[source];
    if (held >= m_MaxPerSource)
        return Admission::SourceFull;
    ++held;
    ++m_Open;
    return Admission::Admitted;
}

bool ConnectionLimits::OpenBeyondShare(std::uint32_t source)
{
    std::lock_guard lock(m_Mutex);
    if (m_Open >= m_Max)
        return false;
    ++m_PerSource[source];
    ++m_Open;
    return true;
}

void ConnectionLimits::Close(std::uint32_t source)
{
    std::lock_guard lock(m_Mutex);
    const auto it = m_PerSource.find(source);
    if (it == m_PerSource.end() || it->second == 0)
        return;
    // Only addresses holding connections stay in the table, so its size is
    // bounded by the connection limit whatever the sources were.
    if (--it->second == 0)
        m_PerSource.erase(it);
    --m_Open;
}

PongAdmission::PongAdmission(double perSource, double perSourceBurst, double global)
    : m_PerSource(perSource, perSourceBurst), m_Global(global, global, 1)
{
}

void PongAdmission::Decide(const std::uint32_t* pSources, Verdict* pVerdicts, std::size_t nCount,
                           TimePoint now)
{
    std::lock_guard lock(m_Mutex);
    for (std::size_t i = 0; i < nCount; ++i)
    {
        // The source's bucket first: a flooding address spends its own
        // tokens, not everyone's.
        if (!m_PerSource.Allow(pSources[i], now))
            pVerdicts[i] = Verdict::SourceLimited;
        else if (!m_Global.Allow(0, now))
            pVerdicts[i] = Verdict::BudgetSpent;
        else
            pVerdicts[i] = Verdict::Allowed;
    }
}

bool TokenBucket::Take(double rate, double burst, SourceRateLimiter::TimePoint now)
{
    if (m_Last == SourceRateLimiter::TimePoint{})
        m_Tokens = burst;
    else
    {
        const double seconds = std::chrono::duration<double>(now - m_Last).count();
        m_Tokens = std::min(burst, m_Tokens + std::max(0.0, seconds) * rate);
    }
    m_Last = now;
    if (m_Tokens < 1.0)
        return false;
    m_Tokens -= 1.0;
    return true;
}

ExtendedAdmission::ExtendedAdmission(const ExtendedLimitSettings& settings)
    : m_Settings(settings), m_Hellos(settings.m_HellosPerSecond, settings.m_HelloBurst),
      m_Welcomes(settings.m_WelcomeBudget, settings.m_WelcomeBudget, 1)
{
}

ExtendedAdmission::Verdict ExtendedAdmission::Counts::Check(std::uint32_t source, std::uint32_t perSourceMax,
                                                            std::uint32_t totalMax) const
{
    if (total >= totalMax)
        return Verdict::Full;
    const auto it = perSource.find(source);
    if (it != perSource.end() && it->second >= perSourceMax)
        return Verdict::SourceFull;
    return Verdict::Admitted;
}

void ExtendedAdmission::Counts::Add(std::uint32_t source)
{
    ++perSource[source];
    ++total;
}

void ExtendedAdmission::Counts::Remove(std::uint32_t source)
{
    const auto it = perSource.find(source);
    if (it == perSource.end())
        return;
    if (--it->second == 0)
        perSource.erase(it);
    --total;
}

ExtendedAdmission::Verdict ExtendedAdmission::Hello(std::uint32_t source, TimePoint now)
{
    if (!m_Hellos.Allow(source, now))
        return Verdict::SourceFull;
    return m_Welcomes.Allow(0, now) ? Verdict::Admitted : Verdict::Full;
}

ExtendedAdmission::Verdict ExtendedAdmission::CanOpenSession(std::uint32_t source) const
{
    return m_Sessions.Check(source, m_Settings.m_SessionsPerSource, m_Settings.m_MaxSessions);
}

ExtendedAdmission::Verdict ExtendedAdmission::OpenSession(std::uint32_t source)
{
    const Verdict verdict = CanOpenSession(source);
    if (verdict == Verdict::Admitted)
        m_Sessions.Add(source);
    return verdict;
}

void ExtendedAdmission::CloseSession(std::uint32_t source)
{
    m_Sessions.Remove(source);
}

ExtendedAdmission::Verdict ExtendedAdmission::OpenPending(std::uint32_t source)
{
    const Verdict verdict = m_Pending.Check(source, m_Settings.m_PendingPerSource, m_Settings.m_MaxPending);
    if (verdict == Verdict::Admitted)
        m_Pending.Add(source);
    return verdict;
}

void ExtendedAdmission::ClosePending(std::uint32_t source)
{
    m_Pending.Remove(source);
}

ExtendedAdmission::Verdict ExtendedAdmission::OpenStream(std::uint32_t source, bool bFirst)
{
    const std::uint32_t budget = bFirst ? m_Settings.m_StreamBudget : m_Settings.m_StreamBudget / 4;
    const Verdict verdict = m_Streams.Check(source, m_Settings.m_StreamsPerSource, budget);
    if (verdict == Verdict::Admitted)
        m_Streams.Add(source);
    return verdict;
}

void ExtendedAdmission::CloseStream(std::uint32_t source)
{
    m_Streams.Remove(source);
}
