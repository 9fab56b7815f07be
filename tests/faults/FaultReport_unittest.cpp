// The echo test's report when junk came to the pong port: named only where
// pongs were lost, so a pass stays the plain pass it always was.
#include <gtest/gtest.h>

#include "RigInspector/NetworkReport.h"
#include "RigInspector/UdpChecker.h"
#include "tests/checks/FakeReportSink.h"

namespace
{
const tstring kUdpFailed =
    u"<br><font color=red>UDP test failed. UDP ports for the game may be blocked.</font>";

TEST(FaultReportTest, JunkIsNamedBeforeTheFailureOnlyWhenPongsWereLost)
{
    ScopedReportSink sink;
    UdpChecker checker(u"UdpChecker");
    checker.Reset();
    checker.m_Answered = {true, false, true};
    checker.AddPingTime(20);
    checker.AddPingTime(30);
    checker.m_IgnoredCount = 4321;
    ReportUdpResult(checker, tstring());
    const auto& f = sink.Fragments();
    ASSERT_GE(f.size(), 8u);
    EXPECT_EQ(f[6], u"<br><font color=red>\t4321 datagrams that answered no ping came to port 20000.</font>");
    EXPECT_EQ(f[7], kUdpFailed);
    EXPECT_EQ(g_inspector.m_Results.udp.ignored, 4321u);
    EXPECT_FALSE(g_inspector.m_Results.udp.passed);

    sink.Fragments().clear();
    checker.m_Answered = {true, true, true};
    ReportUdpResult(checker, tstring());
    EXPECT_EQ(sink.Fragments().size(), 6u);
    EXPECT_TRUE(g_inspector.m_Results.udp.passed);
}
} // namespace
