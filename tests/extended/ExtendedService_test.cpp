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
} // namespace
