// The echo test's server side: pings to 9998, pongs to the sender's port 20000.
// Dropped pings are covered end to end, where the checker reports the loss.
#include <climits>
#include <gtest/gtest.h>
#include <memory>

#include "RigInspector/EchoText.h"
#include "ServerProcess.h"
#include "TestSockets.h"

using namespace testnet;

namespace
{
constexpr std::uint16_t kUdpPort = 9998;

class UdpEchoServiceTest : public ::testing::Test
{
protected:
    void Start(const std::vector<std::string>& args)
    {
        m_Server = std::make_unique<ServerProcess>(args);
        ASSERT_TRUE(m_Server->WaitUntilReady()) << m_Server->GetStderr();
        ASSERT_GE(m_Pongs.Get(), 0);
        ASSERT_GE(m_Pings.Get(), 0);
    }

    void Send(const Bytes& data, const Fd& from)
    {
        ASSERT_TRUE(SendDatagram(from, kUdpPort, data.data(), data.size()));
    }

    /// The seqs of every pong up to and including fenceSeq's: the server takes
    /// datagrams in order, so nothing sent before the fence is still to come.
    std::vector<int> PongsUntil(int fenceSeq)
    {
        std::vector<int> seqs;
        while (seqs.size() < 100 && (seqs.empty() || seqs.back() != fenceSeq))
        {
            const auto datagram = ReceiveDatagram(m_Pongs);
            if (!datagram)
                break;
            const auto pong = EchoText::ParsePong(datagram->data(), datagram->size());
            EXPECT_TRUE(pong) << "not a pong: " << datagram->size() << " bytes";
            seqs.push_back(pong ? pong->m_Seq : -1);
        }
        return seqs;
    }

    std::unique_ptr<ServerProcess> m_Server;
    Fd m_Pongs = BindUdp("0.0.0.0", 20000);
    Fd m_Pings = BindUdp("127.0.0.1", 0);
};
} // namespace

TEST_F(UdpEchoServiceTest, JunkAndShortDatagramsAreIgnoredPongsAreNeverLargerThanPings)
{
    Start({});
    // Junk, short datagrams and a ping whose pong ("pong 0 5") would outgrow it.
    for (const Bytes& junk :
         std::vector<Bytes>{{}, {'p'}, {'p', 0, 'i'}, Utf16("pong 1 2"), Utf16("ping  5")})
        Send(junk, m_Pings);
    // The reply rules themselves are fuzzed; these prove the service applies
    // them to the bytes it received: an odd last byte dropped, a pong as long
    // as its ping still sent.
    Bytes odd = Utf16("ping 4 77");
    odd.push_back('x');
    for (const auto& [ping, fields] : std::vector<std::pair<Bytes, EchoText::Fields>>{
             {odd, {4, 77}}, {Utf16("ping -5 2147483647"), {-5, INT_MAX}}})
    {
        Send(ping, m_Pings);
        const auto datagram = ReceiveDatagram(m_Pongs);
        ASSERT_TRUE(datagram);
        EXPECT_LE(datagram->size(), ping.size());
        const auto pong = EchoText::ParsePong(datagram->data(), datagram->size());
        ASSERT_TRUE(pong);
        EXPECT_EQ(pong->m_Seq, fields.m_Seq);
        EXPECT_EQ(pong->m_Tick, fields.m_Tick);
    }
    EXPECT_FALSE(ReceiveDatagram(m_Pongs, Millis(0)));
}

TEST_F(UdpEchoServiceTest, RateLimitIsPerSourceAddress)
{
    // One thread keeps the two sources' pings in one queue, in order.
    Start({"--rate-limit", "0.01", "--rate-burst", "3", "--threads", "1"});
    for (int seq = 0; seq < 10; ++seq)
        Send(EchoText::FormatPing(seq, 1), m_Pings);
    const Fd other = BindUdp("127.0.0.2", 0);
    Send(EchoText::FormatPing(100, 1), other);
    EXPECT_EQ(PongsUntil(100), (std::vector<int>{0, 1, 2, 100}));
}

TEST_F(UdpEchoServiceTest, MalformedPongsAreAllRejectedByTheClientsParser)
{
    Start({"--malformed-pongs"});
    for (int seq = 0; seq < 2; ++seq) // the two faults take turns
    {
        const Bytes request = EchoText::FormatPing(seq, 1000 + seq);
        Send(request, m_Pings);
        const auto datagram = ReceiveDatagram(m_Pongs);
        ASSERT_TRUE(datagram) << seq;
        EXPECT_LE(datagram->size(), request.size());
        EXPECT_FALSE(EchoText::ParsePong(datagram->data(), datagram->size())) << seq;
    }
}

TEST_F(UdpEchoServiceTest, PongsToThisMachineLeaveNoSoonerThanAMillisecondAfterTheirPing)
{
    // The checker refuses a round trip of 0 whole milliseconds.
    Start({});
    for (int seq = 0; seq < 20; ++seq)
    {
        const auto sent = std::chrono::steady_clock::now();
        Send(EchoText::FormatPing(seq, 1), m_Pings);
        ASSERT_TRUE(ReceiveDatagram(m_Pongs)) << seq;
        EXPECT_GE(std::chrono::steady_clock::now() - sent, Millis(1)) << seq;
    }
}

TEST_F(UdpEchoServiceTest, GlobalBudgetCapsPongsToManySourcesAndCountsTheRest)
{
    Start({"--pong-budget", "10", "--metrics", "127.0.0.1:9100"});
    std::vector<Fd> sources;
    for (int i = 0; i < 40; ++i)
    {
        sources.push_back(BindUdp("127.0.0." + std::to_string(i + 2), 0));
        Send(EchoText::FormatPing(i, 1), sources.back());
    }
    int pongs = 0;
    while (ReceiveDatagram(m_Pongs, Millis(300)))
        ++pongs;
    // One second's budget, and what trickles in while the pings arrive.
    EXPECT_GE(pongs, 10);
    EXPECT_LE(pongs, 14);
    const std::string metrics = HttpGet(9100, "/metrics");
    EXPECT_EQ(MetricValue(metrics, "rig_udp_pongs_sent_total"), pongs) << metrics;
    EXPECT_EQ(MetricValue(metrics, "rig_udp_pongs_rate_limited_total{limit=\"global\"}"), 40 - pongs);
}
