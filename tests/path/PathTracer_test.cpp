// The tracer's schedule and bookkeeping against a scripted path: it stops at
// the server, never probes a hop faster than the pace, counts what came back,
// and says why when the path cannot be traced.
#include <gtest/gtest.h>

#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>

#include "RigInspector/Diagnostics.h"
#include "RigInspector/PathTracer.h"
#include "share/common/StringUtil.h"

namespace
{
using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

// Answers at once, from the script: which address answers a probe of each
// TTL (nothing: silence), and whether it is the server.
class FakeProbe : public PathProbe
{
public:
    using Script = std::function<std::optional<std::pair<std::uint32_t, bool>>(int ttl, std::uint16_t seq)>;
    struct Log
    {
        std::mutex lock;
        std::vector<std::pair<int, Clock::time_point>> sent;
        bool bOpened = false;
        std::size_t capacity = SIZE_MAX; // sends taken between two receives, as a full system queue
    };

    // Two constructors rather than a defaulted optional argument: GCC 12 takes
    // the empty optional's strings for uninitialised under the sanitizers.
    FakeProbe(Script script, Log& log) : m_Script(std::move(script)), m_Log(log) {}
    FakeProbe(Script script, Log& log, PathProbeError openError)
        : m_Script(std::move(script)), m_Log(log), m_OpenError(std::move(openError))
    {
    }
    std::optional<PathProbeError> Open(std::uint32_t) override
    {
        m_Log.bOpened = true;
        return m_OpenError;
    }
    bool Send(int ttl, std::uint16_t seq) override
    {
        if (m_SinceReceive >= m_Log.capacity)
            return false;
        ++m_SinceReceive;
        const auto now = Clock::now();
        m_Log.sent.emplace_back(ttl, now);
        if (const auto answer = m_Script(ttl, seq))
        {
            m_Ready.push_back({seq, answer->first, answer->second, now});
            // Duplicates and answers to probes never sent must not count.
            m_Ready.push_back({seq, answer->first, answer->second, now});
            m_Ready.push_back({static_cast<std::uint16_t>(seq + 1000), answer->first, answer->second, now});
        }
        return true;
    }
    std::vector<PathProbeAnswer> Receive(Clock::time_point until) override
    {
        m_SinceReceive = 0;
        if (m_Ready.empty())
        {
            std::unique_lock<std::mutex> lock(m_Log.lock);
            m_Wake.wait_until(lock, until); // nothing else will come: the schedule's own wait
        }
        return std::exchange(m_Ready, {});
    }

private:
    Script m_Script;
    Log& m_Log;
    std::optional<PathProbeError> m_OpenError;
    std::vector<PathProbeAnswer> m_Ready;
    std::size_t m_SinceReceive = 0;
    std::condition_variable m_Wake;
};

constexpr std::uint32_t kServer = 0xC6120302; // 198.18.3.2
std::uint32_t Router(int ttl)
{
    return 0xC6120002u + (static_cast<std::uint32_t>(ttl - 1) << 8);
}

const PathSettings kFast{30, 6, 2, 5ms, 40ms, 2ms, 30ms};

// Three routers and the server at hop 4; hop 2 answers every other probe.
std::optional<std::pair<std::uint32_t, bool>> ThreeRouters(int ttl, std::uint16_t)
{
    static int s_Hop2 = 0;
    if (ttl >= 4)
        return std::make_pair(kServer, true);
    if (ttl == 2 && s_Hop2++ % 2 == 1)
        return std::nullopt;
    return std::make_pair(Router(ttl), false);
}

std::vector<std::string> Codes()
{
    std::vector<std::string> codes;
    for (const Diagnostic& d : GetDiagnostics().List())
        codes.push_back(d.code);
    return codes;
}

class PathTracerTest : public testing::Test
{
protected:
    void SetUp() override { GetDiagnostics().Clear(); }
    PathReport Trace(FakeProbe::Script script, const std::string& host = "198.18.3.2",
                     const PathProbeError* pOpenError = nullptr)
    {
        PathTracer tracer(pOpenError ? std::make_unique<FakeProbe>(std::move(script), m_Log, *pOpenError)
                                     : std::make_unique<FakeProbe>(std::move(script), m_Log),
                          kFast);
        m_Begin = Clock::now();
        return tracer.Trace(host, m_Begin + 5s);
    }
    FakeProbe::Log m_Log;
    Clock::time_point m_Begin;
};

TEST_F(PathTracerTest, EveryHopToTheServerAtThePace)
{
    const PathReport r = Trace(ThreeRouters);
    ASSERT_TRUE(r.ran);
    EXPECT_TRUE(r.reached);
    EXPECT_EQ(r.target, "198.18.3.2");
    ASSERT_EQ(r.hops.size(), 4u);
    const char* addresses[] = {"198.18.0.2", "198.18.1.2", "198.18.2.2", "198.18.3.2"};
    for (int i = 0; i < 4; ++i)
    {
        EXPECT_EQ(r.hops[i].ttl, i + 1);
        EXPECT_EQ(r.hops[i].address, addresses[i]);
        EXPECT_EQ(r.hops[i].sent, 6u) << i;
        EXPECT_TRUE(r.hops[i].rttP50Ms);
    }
    EXPECT_EQ(r.probesPerHop, 6u);
    EXPECT_EQ(r.hops[0].answered, 6u);
    EXPECT_EQ(r.hops[1].answered, 3u);
    EXPECT_DOUBLE_EQ(r.hops[1].lossPercent, 50.0);
    EXPECT_TRUE(Codes().empty());

    // Past the server only while it was being found; each hop's k-th probe
    // no sooner than the burst and k - 2 rounds into the trace.
    std::map<int, std::vector<Clock::time_point>> byTtl;
    for (const auto& [ttl, at] : m_Log.sent)
        byTtl[ttl].push_back(at);
    EXPECT_LE(byTtl.rbegin()->first, 4 + 1);
    for (const auto& [ttl, times] : byTtl)
        for (std::size_t k = 1; k < times.size(); ++k)
            EXPECT_GE(times[k] - m_Begin, k <= 2 ? kFast.burst * k : kFast.burst * 2 + kFast.round * (k - 2))
                << ttl;
}

TEST_F(PathTracerTest, ServerOrAllThatNeverAnswer)
{
    const PathReport r = Trace(
        [](int ttl, std::uint16_t) -> std::optional<std::pair<std::uint32_t, bool>>
        {
            if (ttl > 2)
                return std::nullopt;
            return std::make_pair(Router(ttl), false);
        });
    EXPECT_TRUE(r.ran);
    EXPECT_FALSE(r.reached);
    EXPECT_EQ(r.hops.size(), 2u); // the silent tail is left out
    int highest = 0;
    for (const auto& sent : m_Log.sent)
        highest = std::max(highest, sent.first);
    EXPECT_EQ(highest, 30);
    EXPECT_EQ(Codes(), std::vector<std::string>{"path_not_reached"});
    EXPECT_NE(zul::Utf16ToUtf8(GetDiagnostics().List()[0].message).find("hop 2"), std::string::npos);

    GetDiagnostics().Clear();
    const PathReport none =
        Trace([](int, std::uint16_t) { return std::optional<std::pair<std::uint32_t, bool>>(); });
    EXPECT_TRUE(none.hops.empty());
    EXPECT_EQ(Codes(), std::vector<std::string>{"path_no_answer"});
}

// Rounds that fall due together overrun a system that holds few pending
// probes (64 on Windows, here one): a refused send is no lost answer.
TEST_F(PathTracerTest, AProbeTheSystemRefusesIsNoLoss)
{
    m_Log.capacity = 1;
    const PathReport r = Trace(
        [](int ttl, std::uint16_t) -> std::optional<std::pair<std::uint32_t, bool>>
        {
            if (ttl > 2)
                return std::nullopt;
            return std::make_pair(Router(ttl), false);
        });
    ASSERT_EQ(r.hops.size(), 2u);
    for (const PathHop& hop : r.hops)
    {
        EXPECT_GE(hop.sent, 3u) << hop.ttl;
        EXPECT_EQ(hop.answered, hop.sent) << hop.ttl;
    }
}

TEST_F(PathTracerTest, UnusableHostOrSocketSaysWhyAndSendsNothing)
{
    for (const char* host : {"example.com", "198.18.3", "::1"})
    {
        GetDiagnostics().Clear();
        const PathReport r = Trace(ThreeRouters, host);
        EXPECT_FALSE(r.ran);
        EXPECT_EQ(Codes(), std::vector<std::string>{"path_bad_host"}) << host;
    }
    EXPECT_FALSE(m_Log.bOpened);

    GetDiagnostics().Clear();
    const PathProbeError refused{"path_no_permission", "no ICMP."};
    const PathReport r = Trace(ThreeRouters, "198.18.3.2", &refused);
    EXPECT_FALSE(r.ran);
    EXPECT_TRUE(m_Log.sent.empty());
    EXPECT_EQ(Codes(), std::vector<std::string>{"path_no_permission"});
}

TEST_F(PathTracerTest, StopEndsTheRoundsEarly)
{
    PathTracer* self = nullptr;
    PathTracer tracer(std::make_unique<FakeProbe>(
                          [&](int ttl, std::uint16_t seq)
                          {
                              if (ttl == 4)
                                  self->Stop(); // once the server is found
                              return ThreeRouters(ttl, seq);
                          },
                          m_Log),
                      kFast);
    self = &tracer;
    const PathReport r = tracer.Trace("198.18.3.2", Clock::now() + 5s);
    EXPECT_TRUE(r.reached);
    EXPECT_EQ(r.probesPerHop, 1u);
}
} // namespace
