#pragma once
#include <mutex>

namespace zul
{
/// The library's one lock: re-entrant for the thread that holds it.
class CriticalSection
{
public:
    CriticalSection() = default;
    virtual ~CriticalSection() = default;
    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;

    /// Blocks until the calling thread holds the lock (again, if it already does).
    void Enter() { m_CriticalSection.lock(); }
    /// Leaves once; a thread leaves as many times as it entered.
    void Leave() { m_CriticalSection.unlock(); }

private:
    std::recursive_mutex m_CriticalSection;
};

/// Holds a CriticalSection for one scope, also when an exception leaves it.
class ScopedLock
{
public:
    explicit ScopedLock(CriticalSection& lock) : m_pLock(&lock) { m_pLock->Enter(); }
    ~ScopedLock() { m_pLock->Leave(); }
    ScopedLock(const ScopedLock&) = delete;
    ScopedLock& operator=(const ScopedLock&) = delete;

private:
    CriticalSection* m_pLock;
};
} // namespace zul
