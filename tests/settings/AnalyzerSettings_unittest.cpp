#include <unistd.h>

#include <gtest/gtest.h>

#include "RigInspectorApp/AnalyzerSettings.h"
#include "tests/settings/TempDir.h"

namespace
{
class AnalyzerSettingsTest : public ::testing::Test
{
protected:
    AnalyzerSettings Load(const std::string& content)
    {
        TempDir::Write(m_Path, content);
        return AnalyzerSettings(m_Path);
    }

    TempDir m_Dir;
    std::string m_Path = m_Dir.File("rig_inspector.ini");
};

void ExpectDefaults(const AnalyzerSettings& s)
{
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

TEST_F(AnalyzerSettingsTest, NoFileGivesEveryDefault)
{
    ExpectDefaults(AnalyzerSettings(m_Dir.File("missing.ini")));
    ExpectDefaults(Load(""));
    EXPECT_NE(tstring(u"http://portforward-guide.example/").find(kPortForwardGuideHost), tstring::npos);
}

TEST_F(AnalyzerSettingsTest, OneKeyOverridesOnlyItsField)
{
    AnalyzerSettings s = Load("[tcp]\r\nport=1234\r\n");
    EXPECT_EQ(s.m_TcpPort, 1234);
    s.m_TcpPort = 9999;
    ExpectDefaults(s);
}

TEST_F(AnalyzerSettingsTest, ValuesAreStoredUnchecked)
{
    const AnalyzerSettings s =
        Load("[TCP]\nPort=80\n[udp]\nhost=\ncheck_port_min=20010\ncheck_port_max=20000\n"
             "[system]\nmin_system_memory=-1\nmin_video_memory=-2\nmin_cpu_speed=-3\n"
             "[url]\nportforward=http://guide.example\r\n");
    EXPECT_EQ(s.m_TcpPort, 80);
    EXPECT_EQ(s.m_UdpHost, u"");
    EXPECT_EQ(s.m_CheckPortMin, 20010);
    EXPECT_EQ(s.m_CheckPortMax, 20000);
    EXPECT_EQ(s.m_MinSystemMemory, -1);
    EXPECT_EQ(s.m_MinVideoMemory, -2);
    EXPECT_EQ(s.m_MinCpuSpeed, -3);
    EXPECT_EQ(s.m_PortForwardUrl, u"http://guide.example"); // no trailing slash added, no CR kept
}

TEST_F(AnalyzerSettingsTest, LongValueKeepsItsFirst511Characters)
{
    const std::string url = "http://" + std::string(593, 'a');
    const AnalyzerSettings s = Load("[url]\nmin_requirement=" + url + "\n");
    EXPECT_EQ(s.m_MinRequirementUrl, tstring(u"http://") + tstring(504, u'a'));
}

// The loader reads the file relative to the working directory, not the executable.
TEST_F(AnalyzerSettingsTest, DefaultConstructorReadsTheWorkingDirectory)
{
    TempDir::Write(m_Path, "[udp]\nport=4242\n");
    char old[4096];
    ASSERT_NE(::getcwd(old, sizeof old), nullptr);
    ASSERT_EQ(::chdir(m_Dir.Path().c_str()), 0);
    const AnalyzerSettings s;
    ASSERT_EQ(::chdir(old), 0);
    EXPECT_EQ(s.m_UdpPort, 4242);
}
} // namespace
