// The network checks where they meet the system: ports held and a datagram
// socket that cannot be made, in a network namespace of their own. What each
// server behaviour measures is checked end to end.
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <climits>

#include "RigInspector/Diagnostics.h"
#include "RigInspector/PortOwners.h"
#include "RigInspectorApp/AnalyzerSettings.h"
#include "tests/checks/FakeReportSink.h"
#include "tests/server/TestSockets.h"

namespace
{
std::atomic<bool> g_RefuseDatagramSockets{false};
}

// Stands in front of the C library's socket() for this test program: while
// the flag is up a datagram socket fails as it does in a process out of
// descriptors. Starving the process for real would also starve the
// sanitizers, which open pipes of their own.
extern "C" int socket(int domain, int type, int protocol)
{
    if (g_RefuseDatagramSockets && (type & ~(SOCK_NONBLOCK | SOCK_CLOEXEC)) == SOCK_DGRAM)
    {
        errno = EMFILE;
        return -1;
    }
    using SocketFunction = int (*)(int, int, int);
    static const auto real = reinterpret_cast<SocketFunction>(::dlsym(RTLD_NEXT, "socket"));
    return real(domain, type, protocol);
}

namespace
{
tstring Joined(const std::vector<tstring>& fragments)
{
    tstring text;
    for (const tstring& fragment : fragments)
        text += fragment;
    return text;
}

class NetworkChecksTest : public ::testing::Test
{
protected:
    void TearDown() override { g_settings = m_Saved; }

    ScopedReportSink m_Sink;
    AnalyzerSettings m_Saved = g_settings;
};

TEST_F(NetworkChecksTest, TcpPortIsTakenModulo65536)
{
    g_settings.m_TcpHost = u"127.0.0.1";
    g_settings.m_TcpPort = 9999 + 65536;
    g_inspector.CheckTcp();
    ASSERT_GE(m_Sink.Fragments().size(), 2u);
    EXPECT_EQ(m_Sink.Fragments()[0], u"<br>Checking Internet Speed Test(127.0.0.1:9999)...");
    EXPECT_EQ(m_Sink.Fragments()[1], u"<br><font color=red>\tnot connected to server</font>");
}

// A socket that cannot be made: the worker's assertion becomes a diagnostic
// and a failed verdict, the report keeps its own lines, and the process
// carries on.
TEST_F(NetworkChecksTest, UdpSocketThatCannotBeMadeFailsTheCheck)
{
    GetDiagnostics().Clear();
    g_RefuseDatagramSockets = true;
    g_inspector.CheckUdp();
    g_RefuseDatagramSockets = false;

    const auto& f = m_Sink.Fragments();
    ASSERT_EQ(f.size(), 7u);
    EXPECT_EQ(f[0], u"<br>Checking UDP(127.0.0.1:9998)...");
    EXPECT_EQ(f[1], u"<br>\t    send :   0 packets");
    EXPECT_FALSE(g_inspector.m_Results.udp.passed);
    const auto diagnostics = GetDiagnostics().List();
    ASSERT_EQ(diagnostics.size(), 1u);
    EXPECT_EQ(diagnostics[0].code, "check_stopped_on_error");
    EXPECT_EQ(diagnostics[0].message.rfind(
                  u"The UDP echo test stopped on an internal error: Assertion Failed at ", 0),
              0u);
}

// Another program on the pong port is named by process id and executable:
// here the test itself holds it, on the loopback address only.
TEST_F(NetworkChecksTest, HeldPongPortNamesItsHolder)
{
    const testnet::Fd held = testnet::BindUdp("127.0.0.1", 20000);
    ASSERT_GE(held.Get(), 0);
    const std::vector<PortOwner> owners = FindUdpPortOwners(20000);
    ASSERT_EQ(owners.size(), 1u);
    EXPECT_EQ(owners[0].pid, static_cast<std::uint32_t>(::getpid()));
    EXPECT_EQ(owners[0].executable, u"network_checks_test");
    EXPECT_TRUE(FindUdpPortOwners(20001).empty());

    GetDiagnostics().Clear();
    g_settings.m_UdpHost = u"127.0.0.1";
    g_settings.m_UdpPort = 9; // nothing answers: the run lasts its 5 s
    g_inspector.CheckUdp();
    EXPECT_FALSE(g_inspector.m_Results.udp.pongPortBound);
    const auto diagnostics = GetDiagnostics().List();
    ASSERT_EQ(diagnostics.size(), 1u);
    EXPECT_EQ(diagnostics[0].code, "pong_port_held");
    EXPECT_EQ(
        diagnostics[0].message,
        zul::FormatString(u"Port 20000 is held by another program (process %d, network_checks_test), so "
                          u"no pong could be received.",
                          static_cast<int>(::getpid())));
}

// The widest range the settings can hold ends after 65,536 probes, each port
// number once, in the order and with the marks of a short range.
TEST_F(NetworkChecksTest, PortCheckOfTheWidestRangeEndsAfterEveryPortOnce)
{
    g_settings.m_CheckPortMin = INT32_MIN;
    g_settings.m_CheckPortMax = INT32_MAX;
    g_inspector.CheckUdpPorts();
    EXPECT_EQ(g_inspector.m_Results.ports.probed, 65536);
    EXPECT_TRUE(g_inspector.m_Results.ports.passed);
    EXPECT_EQ(Joined(m_Sink.Fragments()),
              u"<br>Checking UDP port" + tstring(65536, u'.') + u"<font color=blue>passed.</font>");
}

// Tens of thousands of ports give the report's text in far fewer fragments
// than marks, each within the report's fragment limit.
TEST_F(NetworkChecksTest, PortCheckMarksAndListsHeldPortsInFewFragments)
{
    const testnet::Fd a = testnet::BindUdp("0.0.0.0", 30000);
    const testnet::Fd b = testnet::BindUdp("0.0.0.0", 30001);
    ASSERT_TRUE(a.Get() >= 0 && b.Get() >= 0);
    g_settings.m_CheckPortMin = 20000;
    g_settings.m_CheckPortMax = 60000;
    g_inspector.CheckUdpPorts();
    const tstring x = u"<font color=red>x</font>";
    EXPECT_EQ(Joined(m_Sink.Fragments()),
              u"<br>Checking UDP port" + tstring(10000, u'.') + x + x + tstring(29998, u'.') +
                  u"failed. 30000 30001 <font color=red>ports are already used.</font>");
    EXPECT_LE(m_Sink.Fragments().size(), 99u);
    for (const tstring& fragment : m_Sink.Fragments())
        EXPECT_LE(fragment.size(), Inspector::kPrintMaxChars);
    EXPECT_EQ(g_inspector.m_Results.ports.probed, 40000);
}
} // namespace
