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

/// One token bucket, for a single owner (an extended session's echoes).
struct TokenBucket
{
    double m_Tokens = 0.0;
    SourceRateLimiter::TimePoint m_Last{};

    /// Refills at rate per second up to burst, then takes one token if any.
    bool Take(double rate, double burst, SourceRateLimiter::TimePoint now);
};

/// What one source address and all of them together may hold of the extended
/// service. The service runs on one thread, so there is no lock.
struct ExtendedLimitSettings
{
    double m_HellosPerSecond = 50.0; // the game's own pace
    double m_HelloBurst = 10.0;
    double m_WelcomeBudget = 20000.0; // per second, all sources: a forged flood cannot make us a reflector
    std::uint32_t m_SessionsPerSource = 8;
    std::uint32_t m_MaxSessions = 4096;
    double m_EchoesPerSecond = 75.0; // a 20 ms probe pace with room for a late timer
    // Two seconds of probes: a busy server reads them in bursts.
    double m_EchoBurst = 100.0;
    std::uint32_t m_StreamsPerSource = 8;
    std::uint32_t m_StreamBudget = 512;
    std::uint32_t m_PendingPerSource = 8; // connections that have not sent their header yet
    std::uint32_t m_MaxPending = 512;
};

class ExtendedAdmission
{
public:
    using TimePoint = SourceRateLimiter::TimePoint;

    enum class Verdict : std::uint8_t
    {
        Admitted,
        SourceFull, // this source's share is taken, or its rate spent
        Full        // the server's total is taken, or the global rate spent
    };

    explicit ExtendedAdmission(const ExtendedLimitSettings& settings);

    Verdict Hello(std::uint32_t source, TimePoint now);
    /// Whether a session could be opened now, without opening it.
    Verdict CanOpenSession(std::uint32_t source) const;
    Verdict OpenSession(std::uint32_t source);
    void CloseSession(std::uint32_t source);

    Verdict OpenPending(std::uint32_t source);
    void ClosePending(std::uint32_t source);
    /// bFirst: the session has no stream in this direction yet. Every player
    /// gets its first stream each way while the budget lasts; a further one
    /// only while less than a quarter of the budget is taken, so that the
    /// first streams of players who come later still find room, also while
    /// the streams of a phase just ended are still being torn down.
    Verdict OpenStream(std::uint32_t source, bool bFirst);
    void CloseStream(std::uint32_t source);

    std::uint32_t Sessions() const { return m_Sessions.total; }
    std::uint32_t Streams() const { return m_Streams.total; }
    const ExtendedLimitSettings& Settings() const { return m_Settings; }

private:
    // Only sources holding something stay in a table, so its size is bounded
    // by the global limit whatever the sources were.
    struct Counts
    {
        std::unordered_map<std::uint32_t, std::uint32_t> perSource;
        std::uint32_t total = 0;

        Verdict Check(std::uint32_t source, std::uint32_t perSourceMax, std::uint32_t totalMax) const;
        void Add(std::uint32_t source);
        void Remove(std::uint32_t source);
    };

    const ExtendedLimitSettings m_Settings;
    SourceRateLimiter m_Hellos;
    SourceRateLimiter m_Welcomes; // one bucket, under source 0
    Counts m_Sessions, m_Pending, m_Streams;
};
