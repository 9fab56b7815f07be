#include <gtest/gtest.h>

#include "RigInspectorApp/AnalyzerSettings.h"
#include "tests/settings/TempDir.h"

namespace
{
TEST(AnalyzerSettings, NoFileGivesEveryDefault)
{
    TempDir dir;
    const AnalyzerSettings s(dir.File("missing.ini"));
    EXPECT_EQ(s.m_TcpHost, u"127.0.0.1");
    EXPECT_EQ(s.m_TcpPort, 9999);
    EXPECT_EQ(s.m_UdpHost, u"127.0.0.1");
    EXPECT_EQ(s.m_UdpPort, 9998);
    EXPECT_EQ(s.m_CheckPortMin, 20000);
    EXPECT_EQ(s.m_CheckPortMax, 20031);
    EXPECT_EQ(s.m_FirewallInfoUrl, u"http://www.dunmore-nine.example");
    EXPECT_EQ(s.m_MinRequirementUrl, u"http://www.dunmore-nine.example/Gameguide/systemreq.asp");
    EXPECT_EQ(s.m_PortForwardUrl, u"http://portforward-guide.example/");
    EXPECT_EQ(s.m_MinSystemMemory, 127);
    EXPECT_EQ(s.m_MinVideoMemory, 15);
    EXPECT_EQ(s.m_MinCpuSpeed, 1000);
}

// Every key by its name, stored as given: no range checks, no trailing slash added.
TEST(AnalyzerSettings, EveryKeyIsReadUnchecked)
{
    TempDir dir;
    TempDir::Write(dir.File("rig.ini"),
                   "[TCP]\nHost=h1\nPort=80\n[udp]\nhost=\nport=81\n"
                   "check_port_min=20010\ncheck_port_max=20000\n"
                   "[firewall]\nurl_more_info=http://fw\n[system]\nmin_system_memory=-1\n"
                   "min_video_memory=-2\nmin_cpu_speed=-3\n"
                   "[url]\nmin_requirement=http://req\nportforward=http://guide\n");
    const AnalyzerSettings s(dir.File("rig.ini"));
    EXPECT_EQ(s.m_TcpHost, u"h1");
    EXPECT_EQ(s.m_TcpPort, 80);
    EXPECT_EQ(s.m_UdpHost, u"");
    EXPECT_EQ(s.m_UdpPort, 81);
    EXPECT_EQ(s.m_CheckPortMin, 20010);
    EXPECT_EQ(s.m_CheckPortMax, 20000);
    EXPECT_EQ(s.m_FirewallInfoUrl, u"http://fw");
    EXPECT_EQ(s.m_MinSystemMemory, -1);
    EXPECT_EQ(s.m_MinVideoMemory, -2);
    EXPECT_EQ(s.m_MinCpuSpeed, -3);
    EXPECT_EQ(s.m_MinRequirementUrl, u"http://req");
    EXPECT_EQ(s.m_PortForwardUrl, u"http://guide");
}
} // namespace
