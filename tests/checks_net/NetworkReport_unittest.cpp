// The network checks' report texts and thresholds, from figures alone.
#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>

#include "RigInspector/Diagnostics.h"
#include "RigInspector/NetworkReport.h"
#include "RigInspector/TcpChecker.h"
#include "RigInspector/UdpChecker.h"
#include "RigInspector/WorkerFailure.h"
#include "RigInspectorApp/AnalyzerSettings.h"
#include "share/common/StringUtil.h"
#include "tests/checks/FakeReportSink.h"

namespace
{
/// The codes of the diagnostics listed so far, in order.
std::vector<std::string> DiagnosticCodes()
{
    std::vector<std::string> codes;
    for (const Diagnostic& d : GetDiagnostics().List())
        codes.push_back(d.code);
    return codes;
}

class NetworkReportTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        g_settings.m_MinRequirementUrl = u"http://req.example/min";
        g_settings.m_PortForwardUrl = u"http://configured.example/";
    }
    void TearDown() override { g_settings = m_Saved; }

    ScopedReportSink m_Sink;
    AnalyzerSettings m_Saved = g_settings;
};

TEST_F(NetworkReportTest, TcpLinesAndVerdictFollowTheFigures)
{
    const struct
    {
        const char* name;
        bool connected, completed;
        double upBps, downBps;
        const char16_t *upText, *downText;
        bool passes;
        const char16_t* failure = u"";
    } cases[] = {
        // Single-precision KB compared with 32.0f: 32767.9995 B/s rounds up to
        // 32.0f and passes; 32767.99 stays below it though it prints 32.00.
        {"exactly32", true, true, 32768.0, 32768.0, u"32.00", u"32.00", true},
        {"roundsTo32", true, true, 32767.9995, 32767.9995, u"32.00", u"32.00", true},
        {"justBelow32Up", true, true, 32767.99, 40000.0, u"32.00", u"39.06", false},
        {"justBelow32Down", true, true, 40000.0, 32767.99, u"39.06", u"32.00", false},
        {"uploadRanOutOfTime", true, false, 40000.0, 40000.0, u"39.06", u"39.06", false},
        {"notConnected", false, false, 0.0, 0.0, u" 0.00", u" 0.00", false},
        {"workerFailed", true, true, 1e6, 1e6, u"976.56", u"976.56", false, u"out of memory"},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.name);
        m_Sink.Fragments().clear();
        TcpChecker checker(u"TcpChecker");
        checker.Reset();
        checker.m_bConnected = c.connected;
        checker.m_bUploadCompleted = c.completed;
        checker.m_UploadSpeed = c.upBps;
        checker.m_DownloadSpeed = c.downBps;
        checker.m_DownloadBytes = 512 * 1024;
        GetDiagnostics().Clear();
        ReportTcpResult(checker, c.failure);

        std::vector<tstring> expected = {
            c.connected ? u"<br>\tconnected to server"
                        : u"<br><font color=red>\tnot connected to server</font>",
            tstring(u"<br>\tUpload Speed : ") + c.upText + u" KB/Sec",
            tstring(u"<br>\tDownload Speed : ") + c.downText + u" KB/Sec",
        };
        // What stopped the worker is a diagnostic; the report only fails.
        EXPECT_EQ(DiagnosticCodes(), *c.failure ? std::vector<std::string>{"check_stopped_on_error"}
                                                : std::vector<std::string>{});
        if (!c.passes)
            expected.insert(
                expected.end(),
                {u"<br><font color=red>We could not finish the speed test completely.</font>",
                 u"<br><font color=red>Internet connection speed test failed. Game performance may "
                 u"be affected, please <a href=\"http://req.example/min\" target=_blank>click "
                 u"here</a> for more info.</font>"});
        EXPECT_EQ(m_Sink.Fragments(), expected);
        EXPECT_EQ(g_inspector.m_Results.tcp.passed, c.passes);
        EXPECT_EQ(g_inspector.m_Results.tcp.failure, c.failure);
        EXPECT_TRUE(g_inspector.m_Results.tcp.ran);
    }
}

TEST_F(NetworkReportTest, UdpLinesAndVerdictFollowTheCounts)
{
    const tstring kNoneSent[] = {u"<br>\t    send :   0 packets",
                                 u"<br>\treceived :   0 packets",
                                 u"<font color=blue><br>\t    loss :   0 packets (0%)</font>",
                                 u"<br>\tmin ping :  -1 ms",
                                 u"<br>\tavg ping :  -1 ms",
                                 u"<br>\tmax ping :  -1 ms"};
    const struct
    {
        const char* name;
        std::vector<bool> answered;
        std::vector<std::int32_t> pings;
        std::vector<tstring> lines; // send .. max
        bool passes;
        std::uint32_t ignored;
        const char16_t* failure = u"";
    } cases[] = {
        // Junk goes to the diagnostics, never the report: a pass stays a plain pass.
        {"allAnsweredWithJunk",
         std::vector<bool>(10, true),
         {3, 4, 5, 6, 7, 8, 9, 10, 11, 12},
         {u"<br>\t    send :  10 packets", u"<br>\treceived :  10 packets",
          u"<font color=blue><br>\t    loss :   0 packets (0%)</font>", u"<br>\tmin ping :   3 ms",
          u"<br>\tavg ping :   7 ms", u"<br>\tmax ping :  12 ms"},
         true,
         4321},
        // Nine round trips of 10 ms over ten sent: 90 / 10, not 90 / 9.
        {"oneLost",
         {true, true, true, false, true, true, true, true, true, true},
         {10, 10, 10, 10, 10, 10, 10, 10, 10},
         {u"<br>\t    send :  10 packets", u"<br>\treceived :   9 packets",
          u"<font color=red><br>\t    loss :   1 packets (10%)</font>", u"<br>\tmin ping :  10 ms",
          u"<br>\tavg ping :   9 ms", u"<br>\tmax ping :  10 ms"},
         false,
         0},
        {"noneAnswered",
         std::vector<bool>(10, false),
         {},
         {u"<br>\t    send :  10 packets", u"<br>\treceived :   0 packets",
          u"<font color=red><br>\t    loss :  10 packets (100%)</font>", u"<br>\tmin ping :  -1 ms",
          u"<br>\tavg ping :   0 ms", u"<br>\tmax ping :  -1 ms"},
         false,
         0},
        {"nothingSent", {}, {}, {std::begin(kNoneSent), std::end(kNoneSent)}, true, 0},
        // Loss in floating point: 2 of 3 is 67%, where integer arithmetic gives 66.
        {"twoOfThreeLostWithJunk",
         {false, true, false},
         {5},
         {u"<br>\t    send :   3 packets", u"<br>\treceived :   1 packets",
          u"<font color=red><br>\t    loss :   2 packets (67%)</font>", u"<br>\tmin ping :   5 ms",
          u"<br>\tavg ping :   1 ms", u"<br>\tmax ping :   5 ms"},
         false,
         4321},
        {"workerFailed", {}, {}, {std::begin(kNoneSent), std::end(kNoneSent)}, false, 0, u"out of memory"},
    };
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
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.name);
        m_Sink.Fragments().clear();
        UdpChecker checker(u"UdpChecker");
        checker.Reset();
        checker.m_Answered = c.answered;
        for (std::int32_t ms : c.pings)
            checker.AddPingTime(ms);
        checker.m_IgnoredCount = c.ignored;
        checker.m_MalformedCount = c.ignored / 2;
        checker.m_UnknownSequenceCount = c.ignored - c.ignored / 2;
        GetDiagnostics().Clear();
        ReportUdpResult(checker, c.failure);

        std::vector<tstring> expected = c.lines;
        std::vector<Diagnostic> diagnostics;
        if (*c.failure)
            diagnostics.push_back(
                {"check_stopped_on_error", u"The UDP echo test stopped on an internal error: out of memory"});
        if (c.ignored > 0)
            diagnostics.push_back({"pongs_refused",
                                   u"4321 datagrams that answered no ping came to port 20000 (2160 "
                                   u"with not a pong; 2161 with a sequence number never sent)."});
        const auto listed = GetDiagnostics().List();
        ASSERT_EQ(listed.size(), diagnostics.size());
        for (std::size_t i = 0; i < listed.size(); ++i)
            EXPECT_TRUE(listed[i].code == diagnostics[i].code && listed[i].message == diagnostics[i].message)
                << listed[i].code << " " << zul::Utf16ToUtf8(listed[i].message);
        // A stopped worker sent nothing it could lose: no port-forwarding steps.
        if (!*c.failure && !c.passes)
            expected.insert(expected.end(), instructions.begin(), instructions.end());
        EXPECT_EQ(m_Sink.Fragments(), expected);
        EXPECT_EQ(g_inspector.m_Results.udp.passed, c.passes);
        EXPECT_EQ(g_inspector.m_Results.udp.ignored, c.ignored);
    }
}

TEST(TcpCheckerTest, APhaseOfNoTimeCountsAsOneMillisecond)
{
    EXPECT_DOUBLE_EQ(BytesPerSecond(1024.0, 500, 500), 1024000.0);
    EXPECT_DOUBLE_EQ(BytesPerSecond(1024.0, 500, 1500), 1024.0);
    // The tick wraps: differences are taken modulo 2^32.
    EXPECT_DOUBLE_EQ(BytesPerSecond(2048.0, 0xFFFFFC18u, 1000), 1024.0);
}

class Worker : public zul::Thread
{
public:
    explicit Worker(std::function<void()> body) : zul::Thread(u"Worker"), m_Body(std::move(body)) {}
    unsigned int Run() override
    {
        m_Body();
        return 0;
    }

private:
    std::function<void()> m_Body;
};

// An escaped assertion is named end to end by the network checks' own test.
TEST(WorkerFailureTest, NamesTheFirstLineOfWhatEscaped)
{
    const auto describe = [](std::function<void()> body)
    {
        Worker worker(std::move(body));
        worker.Start(false);
        EXPECT_TRUE(worker.Wait(30000));
        return DescribeWorkerFailure(worker);
    };
    EXPECT_EQ(describe([] { throw std::runtime_error("bad <thing> & more\nsecond line"); }),
              u"bad <thing> & more");
    EXPECT_EQ(describe([] { throw 42; }), u"unknown error");
    EXPECT_EQ(describe([] {}), u"");
}
} // namespace
