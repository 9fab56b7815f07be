#include <gtest/gtest.h>

#include "RigInspector/SystemProbes.h"
#include "RigInspectorApp/AnalyzerSettings.h"
#include "tests/checks/FakeReportSink.h"

namespace
{
// What the fake probes answer, and the minimums the check compares against.
struct Machine
{
    bool os = true;
    std::uint32_t cpuHeading = 2000; // the first measurement only titles the line
    std::uint32_t cpuVerdict = 2000;
    bool videoOk = true;
    std::uint32_t video = 64;
    std::uint32_t memory = 512;
    std::int32_t minCpu = 1000, minVideo = 15, minMemory = 127;
};
Machine g_machine;
int g_cpuCalls = 0;

const SystemProbes kFakeProbes{[] { return g_machine.os; }, [] { return false; },
                               [] { return ++g_cpuCalls == 1 ? g_machine.cpuHeading : g_machine.cpuVerdict; },
                               [](std::uint32_t& total, std::uint32_t& free)
                               {
                                   // A failing probe may leave a figure behind; the report must show 0M all
                                   // the same.
                                   total = g_machine.videoOk ? g_machine.video : 300;
                                   free = 0;
                                   return g_machine.videoOk;
                               },
                               [](std::uint32_t& total, std::uint32_t& available)
                               {
                                   total = g_machine.memory;
                                   available = 0;
                                   return true;
                               }};

const tstring kPassed = u"<font color=blue>passed.</font>";
tstring Failed(const tstring& need)
{
    return u"<font color=red>failed. You need " + need +
           u" please <a href=\"http://req.example/x\" target=_blank>click here</a> for more info.</font>";
}

/// The report of the four checks: each heading with its figure, then its verdict.
std::vector<tstring> Report(const tstring (&figures)[4], const tstring (&verdicts)[4])
{
    return {u"<br>Checking OS...",
            verdicts[0],
            u"<br>Checking CPU clock(<b>" + figures[1] + u"GHz</b>)...",
            verdicts[1],
            u"<br>Checking Video Card(<b>" + figures[2] + u"M</b>)...",
            verdicts[2],
            u"<br>Checking System Memory(<b>" + figures[3] + u"M</b>)...",
            verdicts[3]};
}

class SystemCheckTest : public ::testing::Test
{
protected:
    void SetUp() override { g_systemProbes = kFakeProbes; }
    void TearDown() override
    {
        g_systemProbes = kRealSystemProbes;
        g_settings = m_OldSettings;
    }
    std::vector<tstring> Run(const Machine& machine)
    {
        g_machine = machine;
        g_cpuCalls = 0;
        g_settings.m_MinCpuSpeed = machine.minCpu;
        g_settings.m_MinVideoMemory = machine.minVideo;
        g_settings.m_MinSystemMemory = machine.minMemory;
        g_settings.m_MinRequirementUrl = u"http://req.example/x";
        m_Sink.Fragments().clear();
        g_inspector.CheckSystem();
        return m_Sink.Fragments();
    }

    ScopedReportSink m_Sink;
    AnalyzerSettings m_OldSettings = g_settings;
};

struct Case
{
    Machine machine;
    int check; // 0 OS, 1 CPU, 2 video, 3 memory; the others show the passing defaults
    tstring figure;
    tstring verdict;
};

TEST_F(SystemCheckTest, VerdictsAndBoundaries)
{
    const auto mb = [](std::uint64_t bytes) { return BytesToReportMegabytes(bytes); };
    const Case cases[] = {
        {{}, 0, u"", kPassed},
        {{.os = false}, 0, u"", Failed(u"Windows 98 or later!")},
        {{.cpuHeading = 1950}, 1, u"2.0", kPassed}, // the single-precision factor rounds up
        {{.cpuHeading = 1049}, 1, u"1.0", kPassed},
        {{.cpuHeading = 1050}, 1, u"1.1", kPassed},
        {{.cpuVerdict = 1000}, 1, u"2.0", kPassed},
        {{.cpuVerdict = 999}, 1, u"2.0", Failed(u"faster CPU than 1.0GHz,")},
        {{.cpuVerdict = 1, .minCpu = 1950}, 1, u"2.0", Failed(u"faster CPU than 2.0GHz,")},
        {{.cpuVerdict = 0, .minCpu = -1}, 1, u"2.0", kPassed}, // the CPU compares signed
        {{.cpuVerdict = 0x80000000u}, 1, u"2.0", Failed(u"faster CPU than 1.0GHz,")},
        {{.video = mb(15360000)}, 2, u"15", kPassed},
        {{.video = mb(15359999)}, 2, u"14", Failed(u"more than 15MB for Video RAM,")},
        {{.video = mb(16ull << 30), .minVideo = -1}, 2, u"4194", Failed(u"more than -1MB for Video RAM,")},
        {{.videoOk = false}, 2, u"0", u"error!"},
        {{.memory = mb(130048000)}, 3, u"127", kPassed},
        {{.memory = mb(130047999)}, 3, u"126", Failed(u"more than 127MB system memory,")},
        {{.memory = mb(24ull << 30)}, 3, u"4194", kPassed}, // saturates, never wraps to a failing figure
        {{.minMemory = -1}, 3, u"512", Failed(u"more than -1MB system memory,")},
    };
    for (const Case& c : cases)
    {
        tstring figures[4] = {u"", u"2.0", u"64", u"512"};
        tstring verdicts[4] = {kPassed, kPassed, kPassed, kPassed};
        figures[c.check] = c.figure;
        verdicts[c.check] = c.verdict;
        EXPECT_EQ(Run(c.machine), Report(figures, verdicts));
        const SystemResult& r = g_inspector.m_Results.system;
        EXPECT_EQ(g_inspector.m_CpuSpeed, static_cast<std::int32_t>(c.machine.cpuVerdict));
        EXPECT_EQ(g_inspector.m_SystemMemory, static_cast<std::int32_t>(c.machine.memory));
        EXPECT_EQ(r.cpuHeadingMhz, c.machine.cpuHeading);
        EXPECT_TRUE(r.ran);
        EXPECT_EQ(r.videoProbeOk, c.machine.videoOk);
        EXPECT_EQ(r.osPassed && r.cpuPassed && r.videoPassed && r.memoryPassed, c.verdict == kPassed);
    }
}

TEST(SystemProbeArithmetic, CpuCountsWrap)
{
    EXPECT_EQ(CpuMhzFromCounts(0xFFFFFFF0u, 0xFFFFFFF0u + 1000000000u), 2000u); // across the wrap
    EXPECT_EQ(CpuMhzFromCounts(0, 499999), 0u);
}
} // namespace
