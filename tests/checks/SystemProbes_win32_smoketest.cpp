// The Windows probes: the version rules on records of the systems they must
// tell apart, and the real calls as Wine (or Windows) answers them.
#include <gtest/gtest.h>

#include "RigInspector/SystemProbes.h"
#include "RigInspector/SystemProbes_win32.h"

namespace
{
constexpr std::uint32_t kWindows = 1; // VER_PLATFORM_WIN32_WINDOWS
constexpr std::uint32_t kNt = 2;      // VER_PLATFORM_WIN32_NT

TEST(VersionRules, Windows98OrLaterAndXpSp2)
{
    const struct
    {
        VersionRecord version;
        bool b98OrLater;
        bool bXpSp2;
    } cases[] = {
        {{kWindows, 4, 0, 0}, false, false}, // Windows 95
        {{kWindows, 4, 10, 0}, true, false}, // 98
        {{kWindows, 4, 90, 0}, true, false}, // Me
        {{0, 4, 10, 0}, false, false},       // Win32s
        {{kNt, 4, 0, 6}, true, false},       // NT 4.0, whatever its numbers
        {{kNt, 5, 1, 1}, true, false},       // XP SP1
        {{kNt, 5, 1, 2}, true, true},        // XP SP2
        {{kNt, 5, 1, 3}, true, true},        // XP SP3
        {{kWindows, 5, 1, 2}, true, true},   // the platform is not examined
        {{kNt, 5, 2, 2}, true, false},       // Server 2003
        {{kNt, 6, 1, 2}, true, false},       // 7
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(testing::Message() << c.version.platformId << " " << c.version.major << "."
                                        << c.version.minor << " SP" << c.version.servicePackMajor);
        EXPECT_EQ(IsWindows98OrLaterRecord(c.version), c.b98OrLater);
        EXPECT_EQ(IsWindowsXpSp2Record(c.version), c.bXpSp2);
    }
}

// Wine answers as Windows 7 SP1, measures the host's clock through RDTSC and
// timeGetTime, emulates DirectDraw and reports the host's memory, which a
// 64-bit process sees whole and the probe holds to the 32-bit count.
TEST(SystemProbesSmoke, RealCallsAnswerPlausibly)
{
    EXPECT_TRUE(IsWindows98OrLater());
    EXPECT_FALSE(IsWindowsXpSp2());
    const std::uint32_t mhz = MeasureCpuSpeed();
    EXPECT_GT(mhz, 100u);
    EXPECT_LT(mhz, 8590u); // the 32-bit count wraps above that

    std::uint32_t total = 0, available = 0;
    EXPECT_TRUE(GetSystemMemory(total, available));
    EXPECT_GT(total, 0u);
    EXPECT_LE(total, 0xFFFFFFFFu / kReportMegabyte);
    EXPECT_LE(available, total);

    std::uint32_t videoTotal = 1, videoFree = 1;
    if (GetVideoMemory(videoTotal, videoFree))
    {
        EXPECT_GT(videoTotal, 0u);
        EXPECT_LE(videoFree, videoTotal);
    }
    else
    {
        EXPECT_EQ(videoTotal + videoFree, 0u);
    }
}
} // namespace
