// The echo test's server side: pings to 9998, pongs to the sender's port 20000.
#include <gtest/gtest.h>
#include <memory>

#include "RigInspector/EchoText.h"
#include "ServerProcess.h"
#include "TestSockets.h"

using namespace testnet;

namespace
{
constexpr std::uint16_t kUdpPort = 9998;
constexpr std::uint16_t kPongPort = 20000;

class UdpEchoServiceTest : public ::testing::Test
{
protected:
    void Start(const std::vector<std::string>& args = {})
    {
        m_Server = std::make_unique<ServerProcess>(args);
        ASSERT_TRUE(m_Server->WaitUntilReady()) << m_Server->GetStderr();
        m_Pongs = BindUdp("0.0.0.0", kPongPort);
        ASSERT_GE(m_Pongs.Get(), 0);
    }

    void Send(const Bytes& data, const std::string& from = "127.0.0.1")
    {
        Fd& socket = from == "127.0.0.1" ? m_Pings : m_OtherPings;
        if (socket.Get() < 0)
            socket = BindUdp(from, 0);
        ASSERT_TRUE(SendDatagram(socket, "127.0.0.1", kUdpPort, data));
    }

    /// Every pong up to and including the one for fenceSeq: the server handles
    /// datagrams in order, so nothing sent before the fence is still to come.
    std::vector<EchoText::Fields> PongsUntil(int fenceSeq)
    {
        std::vector<EchoText::Fields> pongs;
        for (int i = 0; i < 100; ++i)
        {
            const auto datagram = ReceiveDatagram(m_Pongs);
            if (!datagram)
                break;
            const auto pong = EchoText::ParsePong(datagram->data(), datagram->size());
            EXPECT_TRUE(pong) << "not a pong: " << datagram->size() << " bytes";
            if (!pong)
                continue;
            pongs.push_back(*pong);
            if (pong->m_Seq == fenceSeq)
                break;
        }
        return pongs;
    }

    static std::vector<int> Seqs(const std::vector<EchoText::Fields>& pongs)
    {
        std::vector<int> seqs;
        for (const auto& pong : pongs)
            seqs.push_back(pong.m_Seq);
        return seqs;
    }

    std::unique_ptr<ServerProcess> m_Server;
    Fd m_Pongs;
    Fd m_Pings;
    Fd m_OtherPings;
};
} // namespace

TEST_F(UdpEchoServiceTest, JunkAndShortDatagramsAreIgnoredValidPingsAnswered)
{
    Start();
    const std::vector<Bytes> junk = {
        {},
        {'p'},
        {'p', 0, 'i'},
        {'p', 0, 'i', 0, 'n', 0, 'g'},
        Utf16("hello"),
        Utf16("pong 1 2"),
        Utf16("ping 1 2\r\n"),
        Utf16(" ping 1 2"),
        Utf16("ping 1 2 3"),
        Utf16("ping  5"), // three fields, but "pong 0 5" would outgrow the request
    };
    for (const auto& datagram : junk)
        Send(datagram);
    Bytes oddByte = Utf16("ping 4 77");
    oddByte.push_back('x');
    Send(oddByte);
    Send(Utf16("ping +7 0009"));
    Send(EchoText::FormatPing(9, 99));

    const auto pongs = PongsUntil(9);
    ASSERT_EQ(Seqs(pongs), (std::vector<int>{4, 7, 9}));
    EXPECT_EQ(pongs[0].m_Tick, 77);
    EXPECT_EQ(pongs[1].m_Tick, 9);
    EXPECT_FALSE(ReceiveDatagram(m_Pongs, Millis(0)));
}

TEST_F(UdpEchoServiceTest, PongIsTheClientsNumbersAndNeverLargerThanThePing)
{
    Start();
    for (const char* ping : {"ping 0 1", "ping -5 2147483647", "ping 99999999999 1", "ping 3 -2147483648"})
    {
        const Bytes request = Utf16(ping);
        Send(request);
        const auto datagram = ReceiveDatagram(m_Pongs);
        ASSERT_TRUE(datagram) << ping;
        EXPECT_LE(datagram->size(), request.size()) << ping;
        const auto sent = EchoText::ParsePing(request.data(), request.size());
        const auto pong = EchoText::ParsePong(datagram->data(), datagram->size());
        ASSERT_TRUE(pong) << ping;
        EXPECT_EQ(pong->m_Seq, sent->m_Seq);
        EXPECT_EQ(pong->m_Tick, sent->m_Tick);
    }
}

TEST_F(UdpEchoServiceTest, RateLimitIsPerSourceAddress)
{
    Start({"--rate-limit", "0.01", "--rate-burst", "3"});
    for (int seq = 0; seq < 10; ++seq)
        Send(EchoText::FormatPing(seq, 1));
    Send(EchoText::FormatPing(100, 1), "127.0.0.2");
    EXPECT_EQ(Seqs(PongsUntil(100)), (std::vector<int>{0, 1, 2, 100}));
}

TEST_F(UdpEchoServiceTest, DropEveryNthPing)
{
    Start({"--drop-every", "3"});
    for (int seq = 0; seq < 10; ++seq)
        Send(EchoText::FormatPing(seq, 1));
    EXPECT_EQ(Seqs(PongsUntil(9)), (std::vector<int>{0, 1, 3, 4, 6, 7, 9}));
}

TEST_F(UdpEchoServiceTest, PongDelayHoldsEveryPong)
{
    Start({"--pong-delay", "200"});
    const auto sent = std::chrono::steady_clock::now();
    Send(EchoText::FormatPing(0, 1));
    ASSERT_TRUE(ReceiveDatagram(m_Pongs));
    // A lower bound only: the server cannot be early, however loaded the machine.
    EXPECT_GE(std::chrono::steady_clock::now() - sent, Millis(200));
}

TEST_F(UdpEchoServiceTest, MalformedPongsAreAllRejectedByTheClientsParser)
{
    Start({"--malformed-pongs"});
    for (int seq = 0; seq < 4; ++seq)
    {
        const Bytes request = EchoText::FormatPing(seq, 1000 + seq);
        Send(request);
        const auto datagram = ReceiveDatagram(m_Pongs);
        ASSERT_TRUE(datagram) << seq;
        EXPECT_LE(datagram->size(), request.size());
        EXPECT_FALSE(EchoText::ParsePong(datagram->data(), datagram->size())) << seq;
    }
}
