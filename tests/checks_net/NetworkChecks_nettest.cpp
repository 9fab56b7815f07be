// The network checks against small in-test servers over loopback, in a
// network namespace of their own (fixed ports 9998 and 20000).
#include <gtest/gtest.h>

#include <sys/resource.h>
#include <unistd.h>

#include "RigInspector/TcpChecker.h"
#include "RigInspectorApp/AnalyzerSettings.h"
#include "TestServers.h"
#include "tests/checks/FakeReportSink.h"

namespace
{
// A bound on every wait for a worker: far beyond any phase's own limits.
constexpr std::uint32_t kWorkerBoundMs = 60000;
// Short phases keep the tests quick; the logic is the same at 10 s.
constexpr std::uint32_t kPhaseMs = 1500;

tstring Joined(const std::vector<tstring>& fragments, std::size_t from = 0)
{
    tstring text;
    for (std::size_t i = from; i < fragments.size(); ++i)
        text += fragments[i];
    return text;
}

bool Contains(const std::vector<tstring>& fragments, const tstring& line)
{
    return std::find(fragments.begin(), fragments.end(), line) != fragments.end();
}

class NetworkChecksTest : public ::testing::Test
{
protected:
    void TearDown() override { g_settings = m_Saved; }

    ScopedReportSink m_Sink;
    AnalyzerSettings m_Saved = g_settings;
};

struct TcpRun
{
    explicit TcpRun(std::uint16_t port, std::uint32_t phaseMs = kPhaseMs)
    {
        checker.Reset();
        checker.m_Port = port;
        checker.m_Timeout = phaseMs;
        checker.Start(false);
        ended = checker.Wait(kWorkerBoundMs);
    }
    TcpChecker checker{u"TcpChecker"};
    bool ended = false;
};

TEST_F(NetworkChecksTest, TcpGoodServerMovesBothHalves)
{
    TcpTestServer server({});
    // The full limit: a busy machine must not turn a good run into a slow one.
    TcpRun run(server.Port(), 10000);
    ASSERT_TRUE(run.ended);
    EXPECT_TRUE(run.checker.m_bConnected);
    EXPECT_TRUE(run.checker.m_bUploadCompleted);
    EXPECT_EQ(run.checker.m_UploadBytes, 524288u);
    EXPECT_EQ(run.checker.m_DownloadBytes, 524288u);
    EXPECT_GT(run.checker.m_UploadSpeed, 0.0);
    EXPECT_GT(run.checker.m_DownloadSpeed, 0.0);
}

TEST_F(NetworkChecksTest, TcpSilentServerEndsTheDownloadAtItsLimit)
{
    TcpTestServer server({.silent = true});
    TcpRun run(server.Port());
    ASSERT_TRUE(run.ended);
    EXPECT_TRUE(run.checker.m_bConnected);
    EXPECT_EQ(run.checker.m_DownloadBytes, 0u);
    EXPECT_EQ(run.checker.m_DownloadSpeed, 0.0);
}

TEST_F(NetworkChecksTest, TcpServerClosingEarlyIsMeasuredOverWhatCame)
{
    TcpTestServer server({.sendBytes = 100 * 1024});
    TcpRun run(server.Port(), 10000); // the server answers only a whole upload
    ASSERT_TRUE(run.ended);
    EXPECT_EQ(run.checker.m_DownloadBytes, 102400u);
    EXPECT_GT(run.checker.m_DownloadSpeed, 0.0);
}

// The send is bounded by the phase's time left: the phase runs out of time
// with a rate over what went out, rather than failing with 0.00.
TEST_F(NetworkChecksTest, TcpServerThatStopsReadingEndsTheUploadInTime)
{
    TcpTestServer server({.stopReadingAfter = 64 * 1024});
    TcpRun run(server.Port());
    ASSERT_TRUE(run.ended);
    EXPECT_TRUE(run.checker.m_bConnected);
    EXPECT_FALSE(run.checker.m_bUploadCompleted);
    EXPECT_GE(run.checker.m_UploadBytes, 64u * 1024u);
    EXPECT_LT(run.checker.m_UploadBytes, 524288u);
    EXPECT_GT(run.checker.m_UploadSpeed, 0.0);
}

// The last blocks fit in the client's send buffer, so every send succeeds;
// they never reach the server, and an upload is complete only once they have.
TEST_F(NetworkChecksTest, TcpUploadStuckInTheSendBufferIsNotComplete)
{
    TcpTestServer server({.stopReadingAfter = 524288 - 8192});
    TcpRun run(server.Port());
    ASSERT_TRUE(run.ended);
    EXPECT_TRUE(run.checker.m_bConnected);
    EXPECT_FALSE(run.checker.m_bUploadCompleted);
    EXPECT_GT(run.checker.m_UploadSpeed, 0.0);
}

TEST_F(NetworkChecksTest, TcpNothingListeningReportsNotConnected)
{
    std::uint16_t closedPort = 0;
    {
        TcpTestServer server({.silent = true}); // a port that is free once it has gone
        closedPort = server.Port();
    }
    g_settings.m_TcpHost = u"127.0.0.1";
    g_settings.m_TcpPort = closedPort + 65536; // used modulo 65536
    g_settings.m_MinRequirementUrl = u"http://req.example/";
    g_inspector.CheckTcp();
    const std::vector<tstring> expected = {
        zul::FormatString(u"<br>Checking Internet Speed Test(127.0.0.1:%d)...", closedPort),
        u"<br><font color=red>\tnot connected to server</font>",
        u"<br>\tUpload Speed :  0.00 KB/Sec",
        u"<br>\tDownload Speed :  0.00 KB/Sec",
        u"<br><font color=red>We could not finish the speed test completely.</font>",
        u"<br><font color=red>Internet connection speed test failed. Game performance may be affected, "
        u"please "
        u"<a href=\"http://req.example/\" target=_blank>click here</a> for more info.</font>",
    };
    EXPECT_EQ(m_Sink.Fragments(), expected);
}

const tstring kBlueNoLoss = u"<font color=blue><br>\t    loss :   0 packets (0%)</font>";
const tstring kUdpFailed =
    u"<br><font color=red>UDP test failed. UDP ports for the game may be blocked.</font>";

TEST_F(NetworkChecksTest, UdpGoodServerAnswersEveryPing)
{
    UdpEchoTestServer server({});
    g_inspector.CheckUdp();
    const auto& f = m_Sink.Fragments();
    ASSERT_GE(f.size(), 7u);
    EXPECT_EQ(f[0], u"<br>Checking UDP(127.0.0.1:9998)...");
    EXPECT_EQ(f[1], u"<br>\t    send :  10 packets");
    EXPECT_EQ(f[2], u"<br>\treceived :  10 packets");
    EXPECT_EQ(f[3], kBlueNoLoss);
    EXPECT_EQ(f.size(), 7u);
    EXPECT_TRUE(g_inspector.m_Results.udp.passed);
    EXPECT_GT(g_inspector.m_Results.udp.minPingMs, 0);
}

// Short datagrams never leave ReceiveFrom and junk is ignored: the run goes
// on and every real pong still counts.
TEST_F(NetworkChecksTest, UdpShortAndJunkDatagramsAreSkipped)
{
    UdpEchoTestServer server({.junkFirst = true});
    g_inspector.CheckUdp();
    const auto& f = m_Sink.Fragments();
    ASSERT_GE(f.size(), 4u);
    EXPECT_EQ(f[2], u"<br>\treceived :  10 packets");
    EXPECT_EQ(f[3], kBlueNoLoss);
}

TEST_F(NetworkChecksTest, UdpLossyServerPrintsTheInstructions)
{
    UdpEchoTestServer server({.dropEvery = 2});
    g_inspector.CheckUdp();
    const auto& f = m_Sink.Fragments();
    ASSERT_EQ(f.size(), 13u);
    EXPECT_EQ(f[2], u"<br>\treceived :   5 packets");
    EXPECT_EQ(f[3], u"<font color=red><br>\t    loss :   5 packets (50%)</font>");
    EXPECT_EQ(f[7], kUdpFailed);
    EXPECT_EQ(f[12],
              u"<br><font color=black>5. Follow the instructions on the page to forward the ports.</font>");
    EXPECT_FALSE(g_inspector.m_Results.udp.passed);
}

TEST_F(NetworkChecksTest, PortTwentyThousandTakenLosesEveryPingAndIsListed)
{
    HeldUdpPort held(20000);
    ASSERT_TRUE(held.IsHeld());
    UdpEchoTestServer server({});
    g_inspector.CheckUdp();
    EXPECT_TRUE(Contains(m_Sink.Fragments(), u"<br>\treceived :   0 packets"));
    EXPECT_TRUE(Contains(m_Sink.Fragments(), u"<font color=red><br>\t    loss :  10 packets (100%)</font>"));
    EXPECT_TRUE(Contains(m_Sink.Fragments(), kUdpFailed));

    m_Sink.Fragments().clear();
    g_inspector.CheckUdpPorts();
    EXPECT_EQ(Joined(m_Sink.Fragments()),
              u"<br>Checking UDP port<font color=red>x</font>" + tstring(30, u'.') +
                  u"failed. 20000 <font color=red>ports are already used.</font>");
    EXPECT_EQ(g_inspector.m_Results.ports.busyPorts, std::vector<std::int32_t>{20000});
}

// With no descriptor left the socket cannot be made: the worker's assertion
// becomes a red line and a failed verdict, and the process carries on.
TEST_F(NetworkChecksTest, UdpSocketThatCannotBeMadeFailsTheCheck)
{
    rlimit saved{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &saved), 0);
    const int lowest = ::dup(0);
    ASSERT_GE(lowest, 0);
    ::close(lowest);
    rlimit tight = saved;
    tight.rlim_cur = static_cast<rlim_t>(lowest);
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &tight), 0);
    g_inspector.CheckUdp();
    ::setrlimit(RLIMIT_NOFILE, &saved);

    const auto& f = m_Sink.Fragments();
    ASSERT_EQ(f.size(), 8u);
    EXPECT_EQ(f[1], u"<br>\t    send :   0 packets");
    EXPECT_EQ(
        f[7].rfind(u"<br><font color=red>\tThe test stopped on an internal error: Assertion Failed at ", 0),
        0u);
    EXPECT_FALSE(g_inspector.m_Results.udp.passed);
    EXPECT_FALSE(g_inspector.m_Results.udp.failure.empty());
}

TEST_F(NetworkChecksTest, PortCheckMarksAndListsHeldPorts)
{
    HeldUdpPort a(20005);
    HeldUdpPort b(20010);
    ASSERT_TRUE(a.IsHeld() && b.IsHeld());
    g_settings.m_CheckPortMin = 20000;
    g_settings.m_CheckPortMax = 20031;
    g_inspector.CheckUdpPorts();
    const tstring x = u"<font color=red>x</font>";
    EXPECT_EQ(Joined(m_Sink.Fragments()),
              u"<br>Checking UDP port" + tstring(5, u'.') + x + tstring(4, u'.') + x + tstring(20, u'.') +
                  u"failed. 20005 20010 <font color=red>ports are already used.</font>");
    // A short range keeps one fragment per mark, as the report has always had.
    EXPECT_EQ(m_Sink.Fragments().size(), 1u + 31u + 1u + 2u + 1u);

    m_Sink.Fragments().clear();
    g_settings.m_CheckPortMin = 20000;
    g_settings.m_CheckPortMax = 20000;
    g_inspector.CheckUdpPorts();
    EXPECT_EQ(Joined(m_Sink.Fragments()), u"<br>Checking UDP port<font color=blue>passed.</font>");
}

// Tens of thousands of ports: the same text in far fewer fragments, each
// within the report's fragment limit.
TEST_F(NetworkChecksTest, PortCheckOverALargeRangeJoinsTheMarks)
{
    HeldUdpPort a(30000);
    HeldUdpPort b(30001);
    ASSERT_TRUE(a.IsHeld() && b.IsHeld());
    g_settings.m_CheckPortMin = 20000;
    g_settings.m_CheckPortMax = 60000;
    g_inspector.CheckUdpPorts();
    const tstring x = u"<font color=red>x</font>";
    const tstring expected = u"<br>Checking UDP port" + tstring(10000, u'.') + x + x + tstring(29998, u'.') +
                             u"failed. 30000 30001 <font color=red>ports are already used.</font>";
    EXPECT_EQ(Joined(m_Sink.Fragments()), expected);
    EXPECT_LT(m_Sink.Fragments().size(), 100u);
    for (const tstring& fragment : m_Sink.Fragments())
        EXPECT_LE(fragment.size(), Inspector::kPrintMaxChars);
    EXPECT_EQ(g_inspector.m_Results.ports.probed, 40000);
}
} // namespace
