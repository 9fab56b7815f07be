#include "ServerLimits.h"

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
