// The checker against servers that misbehave or refuse: the run still ends
// within its budget, and what it could not measure reads as not measured,
// never as a perfect or a zero figure.
#include <atomic>
#include <gtest/gtest.h>
#include <thread>

#include "RigInspector/ExtendedChecker.h"
#include "RigInspector/ExtendedWire.h"
#include "tests/server/TestSockets.h"

using namespace testnet;
using extended::Type;

namespace
{
// A stand-in for the extended service on a port of the system's choosing: it
// welcomes, and echoes and counts probes when asked to; its TCP side, when
// there is one, tells every stream that it is busy.
class FakeService
{
public:
    FakeService(bool bEcho, bool bBusyStreams) : m_bEcho(bEcho), m_Udp(BindUdp("127.0.0.1", 0))
    {
        sockaddr_in local{};
        socklen_t length = sizeof local;
        ::getsockname(m_Udp.Get(), reinterpret_cast<sockaddr*>(&local), &length);
        m_Port = ntohs(local.sin_port);
        if (bBusyStreams)
        {
            m_Tcp = Fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
            const sockaddr_in at = Address("127.0.0.1", m_Port);
            if (::bind(m_Tcp.Get(), reinterpret_cast<const sockaddr*>(&at), sizeof at) != 0 ||
                ::listen(m_Tcp.Get(), 16) != 0)
                m_Tcp.Reset();
        }
        m_Thread = std::thread([this] { Serve(); });
    }
    ~FakeService()
    {
        m_bStop = true;
        m_Thread.join();
    }
    std::uint16_t Port() const { return m_Port; }
    bool HasTcp() const { return m_Tcp.Get() >= 0; }

private:
    void Serve()
    {
        std::uint8_t buffer[2048];
        std::uint32_t probes = 0;
        while (!m_bStop)
        {
            if (m_Tcp.Get() >= 0 && WaitReadable(m_Tcp, Millis(0)))
                RefuseStream();
            if (!WaitReadable(m_Udp, Millis(10)))
                continue;
            sockaddr_in from{};
            socklen_t fromLength = sizeof from;
            const ssize_t n = ::recvfrom(m_Udp.Get(), buffer, sizeof buffer, 0,
                                         reinterpret_cast<sockaddr*>(&from), &fromLength);
            const auto m = n > 0 ? extended::Decode(buffer, static_cast<std::size_t>(n)) : std::nullopt;
            if (!m)
                continue;
            extended::Message reply = *m;
            if (m->type == Type::Hello)
                reply = {Type::Welcome, 42, 0, m->a};
            else if (m->type == Type::Probe && m_bEcho)
            {
                ++probes;
                reply.type = Type::Echo;
            }
            else if (m->type == Type::StatsRequest && m_bEcho)
                reply = {Type::Stats, 42, probes, 0, 0};
            else
                continue;
            const auto bytes = extended::Encode(reply);
            ::sendto(m_Udp.Get(), bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&from),
                     fromLength);
        }
    }

    void RefuseStream()
    {
        // Kept open to the end: a close with the client's bytes unread would
        // reset the stream, and the record could be lost with it.
        const Fd& stream = m_Refused.emplace_back(::accept4(m_Tcp.Get(), nullptr, nullptr, SOCK_CLOEXEC));
        const auto busy = extended::Encode({Type::Busy, 42, 0, 7000, 2});
        ::send(stream.Get(), busy.data(), busy.size(), MSG_NOSIGNAL);
        ::shutdown(stream.Get(), SHUT_WR);
    }

    const bool m_bEcho;
    Fd m_Udp, m_Tcp;
    std::vector<Fd> m_Refused;
    std::uint16_t m_Port = 0;
    std::atomic<bool> m_bStop{false};
    std::thread m_Thread;
};

/// A short run against port, which must end within its budget.
ExtendedResult ShortRun(std::uint16_t port)
{
    ExtendedSettings settings;
    settings.port = port;
    settings.gamePort = 0;
    settings.idleProbes = 10;
    settings.phaseMs = 600;
    settings.warmupMs = 200;
    settings.tailMs = 100;
    settings.budgetMs = 3000;
    const auto start = std::chrono::steady_clock::now();
    ExtendedResult r = ExtendedChecker(settings).Run();
    EXPECT_LE(std::chrono::steady_clock::now() - start, Millis(settings.budgetMs + 500));
    return r;
}
} // namespace

TEST(ExtendedChecker, ServerSilentAfterTheHandshakeEndsInTimeWithUnknowns)
{
    const FakeService server(false, false); // no TCP listener there: every stream is refused
    const ExtendedResult r = ShortRun(server.Port());

    EXPECT_TRUE(r.failure.empty()) << r.failure;
    EXPECT_GT(r.sent, 10u);
    EXPECT_EQ(r.answered, 0u);
    EXPECT_FALSE(r.idle.p50);
    EXPECT_TRUE(r.grade.empty());
    EXPECT_FALSE(r.lossUpPercent); // the server never said what reached it
    EXPECT_FALSE(r.uploadKBs);
    EXPECT_FALSE(r.downloadKBs);
    // Its requests for the unsolicited datagram may never have arrived.
    EXPECT_FALSE(r.inboundReached);
    EXPECT_TRUE(r.inboundUnknown);
    ASSERT_EQ(r.notes.size(), 2u);
    EXPECT_EQ(r.notes[0].code, "extended_streams_refused");
    EXPECT_EQ(r.notes[1].code, "extended_inbound_unknown");
}

// "Not reached" only when the requests could not all have been lost: at 40 %
// upstream loss three requests all vanish once in sixteen runs, eight once in
// 1,500.
TEST(ExtendedChecker, InboundIsNotReachedOnlyWhenTheRequestsGotThrough)
{
    EXPECT_EQ(InboundTries(0.0), 3);
    EXPECT_EQ(InboundTries(5.0), 3);
    EXPECT_EQ(InboundTries(40.0), 8);
    EXPECT_EQ(InboundTries(90.0), 10);
    EXPECT_EQ(InboundTries(100.0), 10);
    EXPECT_EQ(InboundTries(std::nullopt), 10);

    EXPECT_EQ(InboundVerdict(true, 1, 90.0), true);
    EXPECT_EQ(InboundVerdict(false, 3, 0.0), false);
    EXPECT_EQ(InboundVerdict(false, 8, 40.0), false);
    EXPECT_EQ(InboundVerdict(false, 3, 40.0), std::nullopt);
    EXPECT_EQ(InboundVerdict(false, 10, 60.0), std::nullopt);
    EXPECT_EQ(InboundVerdict(false, 0, 0.0), std::nullopt); // the time ran out before any was sent
    EXPECT_EQ(InboundVerdict(false, 10, std::nullopt), std::nullopt);
}

TEST(ExtendedChecker, StreamsToldBusyLeaveNoThroughputNoLoadedLatencyAndSayWhen)
{
    const FakeService server(true, true);
    ASSERT_TRUE(server.HasTcp());
    const ExtendedResult r = ShortRun(server.Port());

    EXPECT_TRUE(r.failure.empty()) << r.failure;
    EXPECT_TRUE(r.idle.p50); // the echoes were fine
    EXPECT_DOUBLE_EQ(*r.lossUpPercent, 0.0);
    EXPECT_EQ(r.loaded.samples, 0u); // but no load ever ran
    EXPECT_TRUE(r.grade.empty());
    EXPECT_FALSE(r.uploadKBs);
    EXPECT_FALSE(r.downloadKBs);
    ASSERT_EQ(r.notes.size(), 1u);
    EXPECT_EQ(r.notes[0].code, "extended_busy");
    EXPECT_EQ(r.retryAfterMs, 7000u);
}

TEST(ExtendedChecker, StreamsTakenButNeverServedAreNotMeasured)
{
    // The listener takes the connections into its backlog and never reads or
    // writes: the streams stay open and carry nothing.
    const FakeService server(true, false);
    const Fd hold(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_in at = Address("127.0.0.1", server.Port());
    ASSERT_EQ(::bind(hold.Get(), reinterpret_cast<const sockaddr*>(&at), sizeof at), 0);
    ASSERT_EQ(::listen(hold.Get(), 16), 0);
    const ExtendedResult r = ShortRun(server.Port());

    EXPECT_TRUE(r.idle.p50);
    EXPECT_FALSE(r.uploadKBs);
    EXPECT_FALSE(r.downloadKBs);
    EXPECT_TRUE(r.grade.empty());
    ASSERT_EQ(r.notes.size(), 1u);
    EXPECT_EQ(r.notes[0].code, "extended_streams_refused");
}
