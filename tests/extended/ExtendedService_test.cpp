// rig_test_server's extended service over loopback: who gets an answer, how
// large it is, and what the server counts.
#include <gtest/gtest.h>
#include <memory>

#include "RigInspector/ExtendedWire.h"
#include "tests/server/ServerProcess.h"
#include "tests/server/TestSockets.h"

using namespace testnet;
using extended::Message;
using extended::Type;

namespace
{
constexpr std::uint16_t kPort = 9997;

class ExtendedServiceTest : public ::testing::Test
{
protected:
    void Start(std::vector<std::string> args = {})
    {
        m_Server = std::make_unique<ServerProcess>(args);
        ASSERT_TRUE(m_Server->WaitUntilReady()) << m_Server->GetStderr();
    }

    static std::optional<Message> Ask(const Fd& from, const Message& m,
                                      std::size_t size = extended::kMinMessage, Millis wait = Millis(1000),
                                      std::size_t* pReplySize = nullptr)
    {
        const auto bytes = extended::Encode(m, size);
        if (!SendDatagram(from, kPort, bytes.data(), bytes.size()))
            return std::nullopt;
        const auto reply = ReceiveDatagram(from, wait);
        if (!reply)
            return std::nullopt;
        if (pReplySize != nullptr)
            *pReplySize = reply->size();
        return extended::Decode(reply->data(), reply->size());
    }

    std::uint64_t Handshake(const Fd& from)
    {
        const auto welcome = Ask(from, {Type::Hello, 0, 0, 1234});
        EXPECT_TRUE(welcome && welcome->type == Type::Welcome && welcome->a == 1234 && welcome->cookie != 0);
        return welcome ? welcome->cookie : 0;
    }

    std::unique_ptr<ServerProcess> m_Server;
};

TEST_F(ExtendedServiceTest, AnswersOnlyTheHandshakenSourceAndNeverLarger)
{
    Start();
    const Fd client = BindUdp("127.0.0.1", 0), other = BindUdp("127.0.0.1", 0),
             game = BindUdp("0.0.0.0", 20000);
    ASSERT_GE(game.Get(), 0);
    // A short hello could be a forged source's amplifier: no answer.
    const auto hello = extended::Encode({Type::Hello});
    ASSERT_TRUE(SendDatagram(client, kPort, hello.data(), 16));
    EXPECT_FALSE(ReceiveDatagram(client, Millis(200)));

    const std::uint64_t cookie = Handshake(client);
    std::size_t replySize = 0;
    const auto echo = Ask(client, {Type::Probe, cookie, 0, 555}, 200, Millis(1000), &replySize);
    ASSERT_TRUE(echo);
    EXPECT_EQ(echo->type, Type::Echo);
    EXPECT_EQ(echo->a, 555u);
    EXPECT_EQ(replySize, 200u);
    Ask(client, {Type::Probe, cookie, 0, 555}); // a duplicate
    // The cookie from another port, or a wrong cookie: silence.
    EXPECT_FALSE(Ask(other, {Type::Probe, cookie, 1, 1}, extended::kMinMessage, Millis(200)));
    EXPECT_FALSE(Ask(client, {Type::Probe, cookie + 1, 1, 1}, extended::kMinMessage, Millis(200)));
    EXPECT_FALSE(Ask(other, {Type::InboundRequest, cookie, 0, 9}, extended::kMinMessage, Millis(200)));
    EXPECT_FALSE(ReceiveDatagram(game, Millis(200)));

    const auto stats = Ask(client, {Type::StatsRequest, cookie, 0, 0, 1000});
    ASSERT_TRUE(stats);
    EXPECT_EQ(stats->seq, 1u); // distinct probes
    EXPECT_EQ(stats->b, 1u);   // duplicates

    // The inbound datagram comes to the game port, from another server port.
    const auto bytes = extended::Encode({Type::InboundRequest, cookie, 0, 77});
    ASSERT_TRUE(SendDatagram(client, kPort, bytes.data(), bytes.size()));
    const auto inbound = ReceiveDatagram(game, Millis(1000));
    ASSERT_TRUE(inbound);
    const auto m = extended::Decode(inbound->data(), inbound->size());
    ASSERT_TRUE(m);
    EXPECT_EQ(m->type, Type::Inbound);
    EXPECT_EQ(m->a, 77u);
    EXPECT_LE(inbound->size(), bytes.size());
}

TEST_F(ExtendedServiceTest, FaultFlagsApplyToTheProbes)
{
    Start({"--drop-every", "3", "--pong-delay", "40", "--jitter", "20"});
    const Fd client = BindUdp("127.0.0.1", 0);
    const std::uint64_t cookie = Handshake(client);
    int answered = 0;
    for (std::uint32_t seq = 0; seq < 6; ++seq)
    {
        const auto sent = std::chrono::steady_clock::now();
        const auto echo = Ask(client, {Type::Probe, cookie, seq, seq}, extended::kMinMessage, Millis(300));
        const auto waited = std::chrono::steady_clock::now() - sent;
        if (!echo)
            continue;
        ++answered;
        EXPECT_EQ(echo->seq, seq);
        EXPECT_GE(waited, Millis(40));
        EXPECT_LE(waited, Millis(250)); // 40 + up to 20, with room for a slow machine
    }
    EXPECT_EQ(answered, 4);
    const auto stats = Ask(client, {Type::StatsRequest, cookie});
    ASSERT_TRUE(stats);
    EXPECT_EQ(stats->seq, 6u); // dropped echoes were still counted: downstream loss
}

constexpr std::uint16_t kMetricsPort = 9995;

// Reads one record from a stream, or nothing when none comes in time.
std::optional<Message> ReadRecord(const Tcp& socket)
{
    std::uint8_t buffer[extended::kMinMessage];
    std::size_t have = 0;
    while (have < sizeof buffer && socket->WaitReadable(3000) == 1)
    {
        const int n = socket->Receive(reinterpret_cast<char*>(buffer) + have,
                                      static_cast<int>(sizeof buffer - have), 0);
        if (n <= 0)
            break;
        have += static_cast<std::size_t>(n);
    }
    return extended::Decode(buffer, have);
}

Tcp OpenStream(Type type, std::uint64_t cookie)
{
    Tcp socket = ConnectTcp(kPort);
    const auto header = extended::Encode({type, cookie, 0, 3000});
    if (socket->IsConnected())
        socket->Send(reinterpret_cast<const char*>(header.data()), static_cast<int>(header.size()), 0);
    return socket;
}

TEST_F(ExtendedServiceTest, SharesAreKeptAndRefusalsToldAndCounted)
{
    Start({"--extended-sessions-per-source", "1", "--extended-stream-budget", "2", "--metrics",
           "127.0.0.1:" + std::to_string(kMetricsPort)});
    const Fd first = BindUdp("127.0.0.1", 0), second = BindUdp("127.0.0.1", 0),
             forger = BindUdp("127.0.0.1", 0);
    const std::uint64_t cookie = Handshake(first);
    ASSERT_TRUE(Ask(first, {Type::Probe, cookie, 0, 1})); // the session opens with its first probe

    // This host holds its one session: a second player here is told at once.
    const auto busy = Ask(second, {Type::Hello, 0, 0, 4321});
    ASSERT_TRUE(busy);
    EXPECT_EQ(busy->type, Type::Busy);
    EXPECT_EQ(busy->c, 4321u);
    EXPECT_GT(busy->a, 0u);
    // A cookie is worth nothing from another port.
    EXPECT_FALSE(Ask(forger, {Type::Probe, cookie, 1, 1}, extended::kMinMessage, Millis(200)));

    // Bye frees the place there and then.
    const auto bye = extended::Encode({Type::Bye, cookie});
    ASSERT_TRUE(SendDatagram(first, kPort, bye.data(), bye.size()));
    const std::uint64_t next = Handshake(second);
    ASSERT_TRUE(Ask(second, {Type::Probe, next, 0, 1}));

    // The first download gets data, never a record; a second one finds half
    // the budget taken and is told busy before the server closes it.
    const Tcp download = OpenStream(Type::Download, next);
    const auto data = ReadRecord(download);
    EXPECT_FALSE(data);
    const Tcp extra = OpenStream(Type::Download, next);
    const auto refused = ReadRecord(extra);
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->type, Type::Busy);
    EXPECT_EQ(refused->b, static_cast<std::uint64_t>(extended::BusyReason::Streams));
    // A connection that never sends its header is closed, not kept.
    const Tcp silent = ConnectTcp(kPort);
    ASSERT_TRUE(silent->IsConnected());
    EXPECT_TRUE(ReceiveUntilClosed(silent, Millis(5000)));

    const std::string metrics = HttpGet(kMetricsPort, "/metrics");
    EXPECT_GE(MetricValue(metrics, R"(rig_extended_sessions_refused_total{reason="source"})"), 1.0);
    EXPECT_GE(MetricValue(metrics, R"(rig_extended_sessions_refused_total{reason="cookie"})"), 1.0);
    EXPECT_EQ(MetricValue(metrics, R"(rig_extended_streams_refused_total{reason="budget"})"), 1.0);
    EXPECT_EQ(MetricValue(metrics, R"(rig_extended_streams_refused_total{reason="header"})"), 1.0);
    EXPECT_EQ(MetricValue(metrics, "rig_extended_sessions_active"), 1.0);
    EXPECT_EQ(MetricValue(metrics, "rig_extended_streams_active"), 1.0);
}

TEST_F(ExtendedServiceTest, EchoesKeepToTheGamePaceAndHellosToTheirRate)
{
    Start({"--metrics", "127.0.0.1:" + std::to_string(kMetricsPort)});
    const Fd client = BindUdp("127.0.0.1", 0);
    const std::uint64_t cookie = Handshake(client);
    // 200 probes at once: the burst is echoed, the rest is not.
    for (std::uint32_t seq = 0; seq < 200; ++seq)
    {
        const auto probe = extended::Encode({Type::Probe, cookie, seq, seq});
        ASSERT_TRUE(SendDatagram(client, kPort, probe.data(), probe.size()));
    }
    int echoes = 0;
    while (ReceiveDatagram(client, Millis(300)))
        ++echoes;
    EXPECT_GE(echoes, 100);
    EXPECT_LT(echoes, 150);
    // Hellos beyond the burst go unanswered.
    const Fd flooder = BindUdp("127.0.0.1", 0);
    const auto hello = extended::Encode({Type::Hello, 0, 0, 5});
    for (int i = 0; i < 100; ++i)
        ASSERT_TRUE(SendDatagram(flooder, kPort, hello.data(), hello.size()));
    int welcomes = 0;
    while (ReceiveDatagram(flooder, Millis(300)))
        ++welcomes;
    EXPECT_GE(welcomes, 10);
    EXPECT_LT(welcomes, 40);
    const std::string metrics = HttpGet(kMetricsPort, "/metrics");
    EXPECT_EQ(MetricValue(metrics, R"(rig_extended_echoes_refused_total{reason="session_rate"})"),
              200.0 - echoes);
    EXPECT_GE(MetricValue(metrics, R"(rig_extended_hellos_refused_total{reason="source_rate"})"), 60.0);
}
} // namespace
