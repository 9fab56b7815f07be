#include <gtest/gtest.h>

#include "RigInspector/Diagnostics.h"
#include "RigInspectorApp/AnalyzerSettings.h"
#include "tests/settings/TempDir.h"

namespace
{
// The hosts, ports, port range and guide address by default are those the
// end-to-end runs report; the rest shows only here.
TEST(AnalyzerSettings, NoFileGivesEveryDefault)
{
    TempDir dir;
    const AnalyzerSettings s(dir.File("missing.ini"));
    EXPECT_EQ(s.m_FirewallInfoUrl, u"http://www.dunmore-nine.example");
    EXPECT_EQ(s.m_MinRequirementUrl, u"http://www.dunmore-nine.example/Gameguide/systemreq.asp");
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
// Values stay as given; what cannot work is told, each in one sentence.
TEST(AnalyzerSettings, DiagnosesWhatCannotWorkAsGiven)
{
    TempDir dir;
    TempDir::Write(dir.File("rig.ini"),
                   "[tcp]\nhost=10.0.0.256\nport=0\n[udp]\nhost=192.168.1.2\nport=65536\n"
                   "check_port_min=-70000\ncheck_port_max=0\n");
    Diagnostics diagnostics;
    const AnalyzerSettings s(dir.File("rig.ini"), &diagnostics);
    EXPECT_EQ(s.m_UdpPort, 65536);
    std::vector<tstring> messages;
    for (const Diagnostic& d : diagnostics.List())
        messages.push_back(d.message);
    EXPECT_EQ(messages,
              (std::vector<tstring>{
                  u"The [tcp] host \"10.0.0.256\" is not an IPv4 address in dotted form, and hosts are never "
                  u"looked up by name, so this test cannot reach its server.",
                  u"The [tcp] port 0 is outside 1 to 65535, so port 0 is used instead.",
                  u"The [udp] port 65536 is outside 1 to 65535, so port 0 is used instead.",
                  u"The [udp] port range -70000 to 0 spans more than 65,536 ports, so only its first 65,536 "
                  u"ports are checked."}));

    Diagnostics none;
    const AnalyzerSettings folder(dir.Path(), &none);
    ASSERT_EQ(none.List().size(), 1u);
    EXPECT_EQ(none.List()[0].code, "settings_file_unreadable");
    EXPECT_EQ(folder.m_TcpPort, 9999);
}

// The sockets take a host as a C string, ending at its first NUL: the setting
// is judged as they see it, so a host that works is never warned about and
// one that cannot is.
TEST(AnalyzerSettings, ValuesEndAtTheirFirstNul)
{
    TempDir dir;
    using namespace std::string_literals;
    TempDir::Write(dir.File("rig.ini"), "[tcp]\nhost=127.0.0.1\0junk\n[udp]\nhost=\0"
                                        "127.0.0.1\n[url]\nportforward=http://guide/\0x\n"s);
    Diagnostics diagnostics;
    const AnalyzerSettings s(dir.File("rig.ini"), &diagnostics);
    EXPECT_EQ(s.m_TcpHost, u"127.0.0.1");
    EXPECT_EQ(s.m_UdpHost, u"");
    EXPECT_EQ(s.m_PortForwardUrl, u"http://guide/");
    ASSERT_EQ(diagnostics.List().size(), 1u);
    EXPECT_EQ(diagnostics.List()[0].message,
              u"The [udp] host \"\" is not an IPv4 address in dotted form, and hosts are never looked up by "
              u"name, so this test cannot reach its server.");
}
} // namespace
