#include <deque>

#include <gtest/gtest.h>

#include "RigInspector/SystemProbes.h"
#include "RigInspectorApp/AnalyzerSettings.h"
#include "tests/checks/FakeReportSink.h"

namespace
{
// What the fake probes answer; the CPU answers are taken in turn.
struct FakeMachine
{
    bool os = true;
    std::deque<std::uint32_t> cpu;
    bool videoOk = true;
    std::uint32_t video = 64;
    std::uint32_t memory = 512;
};
FakeMachine g_machine;

bool FakeOs()
{
    return g_machine.os;
}
bool FakeXp()
{
    return false;
}
std::uint32_t FakeCpu()
{
    const std::uint32_t mhz = g_machine.cpu.empty() ? 0 : g_machine.cpu.front();
    if (!g_machine.cpu.empty())
        g_machine.cpu.pop_front();
    return mhz;
}
bool FakeVideo(std::uint32_t& total, std::uint32_t& free)
{
    // A failing probe may leave a figure behind; the check must show 0M all the same.
    total = g_machine.video;
    free = 0;
    return g_machine.videoOk;
}
bool FakeMemory(std::uint32_t& total, std::uint32_t& available)
{
    total = g_machine.memory;
    available = 0;
    return true;
}

const tstring kUrl = u"http://req.example/x";
const tstring kPassed = u"<font color=blue>passed.</font>";

class SystemCheckTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_OldSettings = g_settings;
        g_settings.m_MinCpuSpeed = 1000;
        g_settings.m_MinVideoMemory = 15;
        g_settings.m_MinSystemMemory = 127;
        g_settings.m_MinRequirementUrl = kUrl;
        g_machine = FakeMachine{};
        g_machine.cpu = {2000, 2000};
        g_systemProbes = SystemProbes{&FakeOs, &FakeXp, &FakeCpu, &FakeVideo, &FakeMemory};
    }
    void TearDown() override
    {
        g_systemProbes = kRealSystemProbes;
        g_settings = m_OldSettings;
    }
    std::vector<tstring> Run()
    {
        m_Sink.Fragments().clear();
        g_inspector.CheckSystem();
        return m_Sink.Fragments();
    }

    ScopedReportSink m_Sink;
    AnalyzerSettings m_OldSettings{std::string("/nonexistent/rig.ini")};
};

TEST_F(SystemCheckTest, AllPassedReport)
{
    const std::vector<tstring> expected = {u"<br>Checking OS...",
                                           kPassed,
                                           u"<br>Checking CPU clock(<b>2.0GHz</b>)...",
                                           kPassed,
                                           u"<br>Checking Video Card(<b>64M</b>)...",
                                           kPassed,
                                           u"<br>Checking System Memory(<b>512M</b>)...",
                                           kPassed};
    EXPECT_EQ(Run(), expected);
    const SystemResult& r = g_inspector.m_Results.system;
    EXPECT_TRUE(r.ran && r.osPassed && r.cpuPassed && r.videoProbeOk && r.videoPassed && r.memoryPassed);
    EXPECT_EQ(g_inspector.m_CpuSpeed, 2000);
    EXPECT_EQ(g_inspector.m_VideoMemory, 64);
    EXPECT_EQ(g_inspector.m_SystemMemory, 512);
}

TEST_F(SystemCheckTest, OsFailure)
{
    g_machine.os = false;
    EXPECT_EQ(Run()[1], u"<font color=red>failed. You need Windows 98 or later! please <a "
                        u"href=\"http://req.example/x\" target=_blank>click here</a> for more info.</font>");
    EXPECT_FALSE(g_inspector.m_Results.system.osPassed);
}

struct CpuCase
{
    std::uint32_t heading;
    std::uint32_t verdict;
    std::int32_t minimum;
    const char16_t* headingText;
    bool passes;
};

TEST_F(SystemCheckTest, CpuThresholdsAndSinglePrecisionDisplay)
{
    const CpuCase cases[] = {
        {1000, 1000, 1000, u"1.0", true}, // equal passes
        {1000, 999, 1000, u"1.0", false}, // one less fails
        {1950, 1950, 1000, u"2.0", true}, // the single-precision factor rounds up
        {1049, 1049, 1000, u"1.0", true},
        {1050, 1050, 1000, u"1.1", true},
        {3000, 500, 1000, u"3.0", false},         // the heading shows the first, the verdict uses the second
        {0, 0, -1, u"0.0", true},                 // signed: a negative minimum passes every CPU
        {1000, 0x80000000u, 1000, u"1.0", false}, // the figure is compared as signed
    };
    for (const CpuCase& c : cases)
    {
        g_machine.cpu = {c.heading, c.verdict};
        g_settings.m_MinCpuSpeed = c.minimum;
        const std::vector<tstring> report = Run();
        EXPECT_EQ(report[2], u"<br>Checking CPU clock(<b>" + tstring(c.headingText) + u"GHz</b>)...")
            << c.heading;
        EXPECT_EQ(report[3] == kPassed, c.passes) << c.verdict;
        EXPECT_EQ(g_inspector.m_CpuSpeed, static_cast<std::int32_t>(c.verdict));
        EXPECT_EQ(g_inspector.m_Results.system.cpuHeadingMhz, c.heading);
    }
}

TEST_F(SystemCheckTest, CpuFailureNamesTheMinimumInGhz)
{
    g_machine.cpu = {999, 999};
    EXPECT_EQ(Run()[3], u"<font color=red>failed. You need faster CPU than 1.0GHz, please <a "
                        u"href=\"http://req.example/x\" target=_blank>click here</a> for more info.</font>");
    g_machine.cpu = {1, 1};
    g_settings.m_MinCpuSpeed = 1950;
    EXPECT_NE(Run()[3].find(u"than 2.0GHz"), tstring::npos);
}

TEST_F(SystemCheckTest, VideoBoundariesInBytes)
{
    g_machine.video = BytesToReportMegabytes(15360000);
    EXPECT_EQ(Run()[5], kPassed);
    g_machine.video = BytesToReportMegabytes(15359999);
    const std::vector<tstring> report = Run();
    EXPECT_EQ(report[4], u"<br>Checking Video Card(<b>14M</b>)...");
    EXPECT_EQ(report[5], u"<font color=red>failed. You need more than 15MB for Video RAM, please <a "
                         u"href=\"http://req.example/x\" target=_blank>click here</a> for more info.</font>");
    // Unsigned: a negative minimum fails every card and is printed as given.
    g_machine.video = BytesToReportMegabytes(16ull << 30);
    g_settings.m_MinVideoMemory = -1;
    EXPECT_NE(Run()[5].find(u"more than -1MB for Video RAM"), tstring::npos);
}

TEST_F(SystemCheckTest, FailedVideoProbeIsAnErrorAndTheMemoryCheckStillRuns)
{
    g_machine.videoOk = false;
    g_machine.video = 300;
    const std::vector<tstring> report = Run();
    ASSERT_EQ(report.size(), 8u);
    EXPECT_EQ(report[4], u"<br>Checking Video Card(<b>0M</b>)...");
    EXPECT_EQ(report[5], u"error!");
    EXPECT_EQ(report[6], u"<br>Checking System Memory(<b>512M</b>)...");
    EXPECT_EQ(g_inspector.m_VideoMemory, 0);
    EXPECT_FALSE(g_inspector.m_Results.system.videoProbeOk);
    EXPECT_FALSE(g_inspector.m_Results.system.videoPassed);
}

TEST_F(SystemCheckTest, MemoryBoundariesAndSaturation)
{
    g_machine.memory = BytesToReportMegabytes(130048000);
    EXPECT_EQ(Run()[7], kPassed);
    g_machine.memory = BytesToReportMegabytes(130047999);
    EXPECT_EQ(Run()[7], u"<font color=red>failed. You need more than 127MB system memory, please <a "
                        u"href=\"http://req.example/x\" target=_blank>click here</a> for more info.</font>");
    // 24 GiB saturates at the 32-bit count instead of wrapping to a failing figure.
    g_machine.memory = BytesToReportMegabytes(24ull << 30);
    const std::vector<tstring> report = Run();
    EXPECT_EQ(report[6], u"<br>Checking System Memory(<b>4194M</b>)...");
    EXPECT_EQ(report[7], kPassed);
    g_settings.m_MinSystemMemory = -1;
    EXPECT_NE(Run()[7].find(u"more than -1MB system memory"), tstring::npos);
}

TEST(SystemProbeArithmetic, SaturatesAndWraps)
{
    EXPECT_EQ(BytesToReportMegabytes(0xFFFFFFFFull), 4194u);
    EXPECT_EQ(BytesToReportMegabytes(4ull << 30), 4194u);
    EXPECT_EQ(BytesToReportMegabytes(128ull << 20), 131u);
    EXPECT_EQ(BytesToReportMegabytes(16ull << 20), 16u);
    EXPECT_EQ(CpuMhzFromCounts(0xFFFFFFF0u, 0xFFFFFFF0u + 1000000000u), 2000u); // across the wrap
    EXPECT_EQ(CpuMhzFromCounts(0, 499999), 0u);
}

TEST_F(SystemCheckTest, ValuesAreStoredWithoutADialog)
{
    IReportSink* const sink = g_inspector.m_pDlg;
    g_inspector.m_pDlg = nullptr;
    g_machine.cpu = {1500, 1600};
    g_inspector.CheckSystem();
    g_inspector.m_pDlg = sink;
    EXPECT_TRUE(m_Sink.Fragments().empty());
    EXPECT_EQ(g_inspector.m_CpuSpeed, 1600);
    EXPECT_EQ(g_inspector.m_SystemMemory, 512);
}
} // namespace
