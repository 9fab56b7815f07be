// The network checks' report texts and thresholds, from figures alone.
#include <gtest/gtest.h>

#include <stdexcept>

#include "RigInspector/NetworkReport.h"
#include "RigInspector/TcpChecker.h"
#include "RigInspector/UdpChecker.h"
#include "RigInspector/WorkerFailure.h"
#include "RigInspectorApp/AnalyzerSettings.h"
#include "share/common/Assert.h"
#include "tests/checks/FakeReportSink.h"

namespace
{
const tstring kMoreInfo = u"http://req.example/min";
const tstring kConnected = u"<br>\tconnected to server";
const tstring kNotConnected = u"<br><font color=red>\tnot connected to server</font>";
const tstring kIncomplete = u"<br><font color=red>We could not finish the speed test completely.</font>";
const tstring kTcpFailed =
    u"<br><font color=red>Internet connection speed test failed. Game performance may be affected, please "
    u"<a href=\"http://req.example/min\" target=_blank>click here</a> for more info.</font>";

struct TcpCase
{
    const char* name;
    bool connected;
    bool completed;
    double upBps;
    double downBps;
    const char16_t* upText;
    const char16_t* downText;
    bool passes;
};

// Single-precision KB compared with 32.0f: 32768 B/s is exactly 32 KB/Sec;
// 32767.9995 rounds up to 32.0f and passes; 32767.99 stays just below it
// and fails although it prints as 32.00.
const TcpCase kTcpCases[] = {
    {"fast", true, true, 40000.0, 50000.0, u"39.06", u"48.83", true},
    {"exactly32", true, true, 32768.0, 32768.0, u"32.00", u"32.00", true},
    {"roundsTo32", true, true, 32767.9995, 32767.9995, u"32.00", u"32.00", true},
    {"justBelow32Up", true, true, 32767.99, 40000.0, u"32.00", u"39.06", false},
    {"justBelow32Down", true, true, 40000.0, 32767.99, u"39.06", u"32.00", false},
    {"uploadRanOutOfTime", true, false, 40000.0, 40000.0, u"39.06", u"39.06", false},
    {"notConnected", false, false, 0.0, 0.0, u" 0.00", u" 0.00", false},
    {"slow", true, true, 1024.0, 512.0, u" 1.00", u" 0.50", false},
};

class NetworkReportTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_Saved = g_settings;
        g_settings.m_MinRequirementUrl = kMoreInfo;
        g_settings.m_PortForwardUrl = u"http://configured.example/";
    }
    void TearDown() override { g_settings = m_Saved; }

    ScopedReportSink m_Sink;
    AnalyzerSettings m_Saved = g_settings;
};

TEST_F(NetworkReportTest, TcpLinesAndVerdictFollowTheFigures)
{
    for (const TcpCase& c : kTcpCases)
    {
        SCOPED_TRACE(c.name);
        m_Sink.Fragments().clear();
        TcpChecker checker(u"TcpChecker");
        checker.Reset();
        checker.m_bConnected = c.connected;
        checker.m_bUploadCompleted = c.completed;
        checker.m_UploadSpeed = c.upBps;
        checker.m_DownloadSpeed = c.downBps;
        ReportTcpResult(checker, tstring());

        std::vector<tstring> expected = {
            c.connected ? kConnected : kNotConnected,
            tstring(u"<br>\tUpload Speed : ") + c.upText + u" KB/Sec",
            tstring(u"<br>\tDownload Speed : ") + c.downText + u" KB/Sec",
        };
        if (!c.passes)
        {
            expected.push_back(kIncomplete);
            expected.push_back(kTcpFailed);
        }
        EXPECT_EQ(m_Sink.Fragments(), expected);
        EXPECT_EQ(g_inspector.m_Results.tcp.passed, c.passes);
        EXPECT_TRUE(g_inspector.m_Results.tcp.ran);
    }
}

TEST_F(NetworkReportTest, TcpWorkerFailureIsNamedAndFails)
{
    TcpChecker checker(u"TcpChecker");
    checker.Reset();
    checker.m_bConnected = true;
    checker.m_bUploadCompleted = true;
    checker.m_UploadSpeed = 1e6;
    checker.m_DownloadSpeed = 1e6;
    ReportTcpResult(checker, u"out of memory");
    const auto& f = m_Sink.Fragments();
    ASSERT_EQ(f.size(), 6u);
    EXPECT_EQ(f[3], u"<br><font color=red>\tThe test stopped on an internal error: out of memory</font>");
    EXPECT_EQ(f[4], kIncomplete);
    EXPECT_FALSE(g_inspector.m_Results.tcp.passed);
    EXPECT_EQ(g_inspector.m_Results.tcp.failure, u"out of memory");
}

struct UdpCase
{
    const char* name;
    std::vector<bool> answered;
    std::vector<std::int32_t> pings;
    std::vector<tstring> lines; // send .. max, and the junk line when named
    bool passes;
    std::uint32_t ignored = 0;
};

const UdpCase kUdpCases[] = {
    {"allAnswered",
     std::vector<bool>(10, true),
     {3, 4, 5, 6, 7, 8, 9, 10, 11, 12},
     {u"<br>\t    send :  10 packets", u"<br>\treceived :  10 packets",
      u"<font color=blue><br>\t    loss :   0 packets (0%)</font>", u"<br>\tmin ping :   3 ms",
      u"<br>\tavg ping :   7 ms", u"<br>\tmax ping :  12 ms"},
     true},
    // Nine round trips of 10 ms over ten sent: 90 / 10, not 90 / 9.
    {"oneLost",
     {true, true, true, false, true, true, true, true, true, true},
     {10, 10, 10, 10, 10, 10, 10, 10, 10},
     {u"<br>\t    send :  10 packets", u"<br>\treceived :   9 packets",
      u"<font color=red><br>\t    loss :   1 packets (10%)</font>", u"<br>\tmin ping :  10 ms",
      u"<br>\tavg ping :   9 ms", u"<br>\tmax ping :  10 ms"},
     false},
    {"noneAnswered",
     std::vector<bool>(10, false),
     {},
     {u"<br>\t    send :  10 packets", u"<br>\treceived :   0 packets",
      u"<font color=red><br>\t    loss :  10 packets (100%)</font>", u"<br>\tmin ping :  -1 ms",
      u"<br>\tavg ping :   0 ms", u"<br>\tmax ping :  -1 ms"},
     false},
    {"nothingSent",
     {},
     {},
     {u"<br>\t    send :   0 packets", u"<br>\treceived :   0 packets",
      u"<font color=blue><br>\t    loss :   0 packets (0%)</font>", u"<br>\tmin ping :  -1 ms",
      u"<br>\tavg ping :  -1 ms", u"<br>\tmax ping :  -1 ms"},
     true},
    // Loss in floating point: 2 of 3 is 67%, where integer arithmetic gives 66.
    {"twoOfThreeLost",
     {false, true, false},
     {5},
     {u"<br>\t    send :   3 packets", u"<br>\treceived :   1 packets",
      u"<font color=red><br>\t    loss :   2 packets (67%)</font>", u"<br>\tmin ping :   5 ms",
      u"<br>\tavg ping :   1 ms", u"<br>\tmax ping :   5 ms"},
     false},
};

TEST_F(NetworkReportTest, UdpLinesAndVerdictFollowTheCounts)
{
    const std::vector<tstring> instructions = {
        u"<br><font color=red>UDP test failed. UDP ports for the game may be blocked.</font>",
        // The link goes where configured; its text is the guide site's name.
        u"<br><font color=black>1. Please go to <a href=\"http://configured.example/\" "
        u"target=_blank>portforward-guide.example</a>.</font>",
        u"<br><font color=black>2. Click on the router section or go <a "
        u"href=\"http://configured.example/english/routers/port_forwarding/routerindex.htm\" "
        u"target=_blank>here</a>.</font>",
        u"<br><font color=black>3. Choose your router's make and model.</font>",
        u"<br><font color=black>4. Choose Dunmore Nine.</font>",
        u"<br><font color=black>5. Follow the instructions on the page to forward the ports.</font>",
    };
    for (const UdpCase& c : kUdpCases)
    {
        SCOPED_TRACE(c.name);
        m_Sink.Fragments().clear();
        UdpChecker checker(u"UdpChecker");
        checker.Reset();
        checker.m_Answered = c.answered;
        for (std::int32_t ms : c.pings)
            checker.AddPingTime(ms);
        checker.m_IgnoredCount = c.ignored;
        ReportUdpResult(checker, tstring());

        std::vector<tstring> expected = c.lines;
        if (!c.passes)
            expected.insert(expected.end(), instructions.begin(), instructions.end());
        EXPECT_EQ(m_Sink.Fragments(), expected);
        EXPECT_EQ(g_inspector.m_Results.udp.passed, c.passes);
        EXPECT_EQ(g_inspector.m_Results.udp.ignored, c.ignored);
    }
}

TEST_F(NetworkReportTest, UdpWorkerFailureFailsWithoutInstructions)
{
    UdpChecker checker(u"UdpChecker");
    checker.Reset();
    ReportUdpResult(checker, u"Assertion Failed at DatagramSocket.cpp(45)");
    const auto& f = m_Sink.Fragments();
    ASSERT_EQ(f.size(), 7u);
    EXPECT_EQ(f[6], u"<br><font color=red>\tThe test stopped on an internal error: Assertion Failed at "
                    u"DatagramSocket.cpp(45)</font>");
    EXPECT_FALSE(g_inspector.m_Results.udp.passed);
}

TEST(UdpCheckerTest, ARoundTripOfZeroIsRefusedAndNotCounted)
{
    UdpChecker checker(u"UdpChecker");
    checker.Reset();
    checker.AddPingTime(7);
    EXPECT_THROW(checker.AddPingTime(0), zul::AssertionFailure);
    EXPECT_EQ(checker.m_TotalPing, 7u);
    EXPECT_EQ(checker.m_MinPing, 7);
}

TEST(TcpCheckerTest, APhaseOfNoTimeCountsAsOneMillisecond)
{
    EXPECT_DOUBLE_EQ(BytesPerSecond(1024.0, 500, 500), 1024000.0);
    EXPECT_DOUBLE_EQ(BytesPerSecond(1024.0, 500, 1500), 1024.0);
    // The tick wraps: differences are taken modulo 2^32.
    EXPECT_DOUBLE_EQ(BytesPerSecond(2048.0, 0xFFFFFC18u, 1000), 1024.0);
}

class ThrowingWorker : public zul::Thread
{
public:
    explicit ThrowingWorker(int kind) : zul::Thread(u"ThrowingWorker"), m_Kind(kind) {}
    unsigned int Run() override
    {
        if (m_Kind == 0)
            throw std::runtime_error("bad <thing> & more\nsecond line");
        if (m_Kind == 1)
            ZUL_ASSERT(m_Kind == 0);
        if (m_Kind == 2)
            throw 42;
        return 0;
    }

private:
    int m_Kind;
};

TEST(WorkerFailureTest, NamesTheFirstLineOfWhatEscaped)
{
    const auto describe = [](int kind)
    {
        ThrowingWorker worker(kind);
        worker.Start(false);
        EXPECT_TRUE(worker.Wait(30000));
        return DescribeWorkerFailure(worker);
    };
    EXPECT_EQ(describe(0), u"bad &lt;thing&gt; &amp; more");
    EXPECT_EQ(describe(1).rfind(u"Assertion Failed at ", 0), 0u);
    EXPECT_EQ(describe(2), u"unknown error");
    EXPECT_EQ(describe(3), u"");
}
} // namespace
