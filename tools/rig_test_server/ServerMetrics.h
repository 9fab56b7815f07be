#pragma once
// Counters every thread adds to and the metrics endpoint reads; relaxed
// atomics, since each figure stands on its own.
#include <array>
#include <atomic>
#include <cstdint>
#include <string>

class ServerMetrics
{
public:
    using Counter = std::atomic<std::uint64_t>;

    /// A Prometheus histogram of durations in seconds.
    class Histogram
    {
    public:
        static constexpr std::array<double, 9> kBounds{0.25, 0.5, 1, 2, 5, 10, 20, 30, 60};

        void Observe(double seconds);
        void Render(std::string& out, const char* name, const char* help) const;

    private:
        std::array<Counter, kBounds.size() + 1> m_Buckets{}; // the last is +Inf
        Counter m_Count{0};
        Counter m_SumMicros{0};
    };

    static void Add(Counter& counter, std::uint64_t n = 1)
    {
        counter.fetch_add(n, std::memory_order_relaxed);
    }

    // TCP speed tests.
    Counter m_TestsCompleted{0};
    Counter m_TestsEnded{0}; // every admitted connection that ended, completed or not
    std::atomic<std::int64_t> m_ConnectionsActive{0};
    Counter m_RefusedFull{0};
    Counter m_RefusedSource{0};
    Counter m_RefusedDescriptors{0};
    Counter m_EvictedSlow{0};
    Histogram m_TestDuration;   // completed tests, connect to close
    Histogram m_UploadDuration; // completed tests, connect to the download's start

    // UDP echo.
    Counter m_Pings{0};
    Counter m_PongsSent{0};
    Counter m_LimitedSource{0};
    Counter m_LimitedGlobal{0};
    Counter m_Ignored{0};
    Counter m_Dropped{0};

    // The extended exchange: what its limits refused, by reason.
    Counter m_ExtHellosRefusedSource{0};
    Counter m_ExtHellosRefusedGlobal{0};
    Counter m_ExtSessionsOpened{0};
    Counter m_ExtSessionsRefusedSource{0};
    Counter m_ExtSessionsRefusedFull{0};
    Counter m_ExtSessionsRefusedCookie{0};
    Counter m_ExtEchoesRefusedRate{0};
    Counter m_ExtStreamsRefusedSource{0};
    Counter m_ExtStreamsRefusedBudget{0};
    Counter m_ExtStreamsRefusedPending{0};
    Counter m_ExtStreamsRefusedHeader{0};
    Counter m_ExtStreamsRefusedSession{0};
    std::atomic<std::int64_t> m_ExtSessionsActive{0};
    std::atomic<std::int64_t> m_ExtStreamsActive{0};

    /// Prometheus text exposition format (version 0.0.4).
    std::string Render() const;

private:
    void RenderExtended(std::string& out) const;
};
