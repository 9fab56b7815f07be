#include <sys/stat.h>

#include <gtest/gtest.h>

#include "RigInspector/SystemProbes.h"
#include "RigInspector/SystemProbes_posix.h"
#include "tests/settings/TempDir.h"

namespace
{
// The real probes on this machine: only plausibility, never speed.
TEST(SystemProbesSmoke, RealProbesAnswerPlausibly)
{
    EXPECT_TRUE(IsWindows98OrLater());
    EXPECT_FALSE(IsWindowsXpSp2());
    EXPECT_GT(MeasureCpuSpeed(), 0u);
    std::uint32_t total = 1;
    std::uint32_t available = 1;
    EXPECT_TRUE(GetSystemMemory(total, available));
    EXPECT_GT(total, 0u);
    EXPECT_LE(available, total);
    std::uint32_t video = 1;
    std::uint32_t free = 1;
    if (!GetVideoMemory(video, free))
    {
        EXPECT_EQ(video, 0u);
        EXPECT_EQ(free, 0u);
    }
    else
    {
        EXPECT_GT(video, 0u);
    }
}

TEST(DrmVideoMemory, ReadsTheFirstCardWithVram)
{
    TempDir root;
    auto make = [&](const std::string& card, const char* total, const char* used)
    {
        const std::string dir = root.File(card);
        ::mkdir(dir.c_str(), 0755);
        ::mkdir((dir + "/device").c_str(), 0755);
        if (total != nullptr)
            TempDir::Write(dir + "/device/mem_info_vram_total", total);
        if (used != nullptr)
            TempDir::Write(dir + "/device/mem_info_vram_used", used);
    };
    std::uint64_t total = 1;
    std::uint64_t free = 1;
    EXPECT_FALSE(ReadDrmVideoMemory(root.Path(), total, free));
    EXPECT_EQ(total, 0u);

    make("card0", nullptr, nullptr);                // an integrated GPU without VRAM figures
    make("card10", "1000\n", "0\n");                // sorted after card1
    make("card1-DP-1", "5\n", "0\n");               // a connector, not a card
    make("card1", "17179869184\n", "1073741824\n"); // 16 GiB, 1 GiB used
    ASSERT_TRUE(ReadDrmVideoMemory(root.Path(), total, free));
    EXPECT_EQ(total, 17179869184u);
    EXPECT_EQ(free, 16106127360u);
    EXPECT_EQ(BytesToReportMegabytes(total), 4194u); // a 16 GiB card shows 4194M, never a wrapped figure
}

// Without a GPU node the driver probe is skipped; each kind of node enables it.
TEST(GpuDeviceNode, FoundOnlyForDriverNodes)
{
    TempDir dev;
    EXPECT_FALSE(HasGpuDeviceNode(dev.Path()));
    TempDir::Write(dev.File("null"), "");
    ::mkdir(dev.File("dri").c_str(), 0755);
    TempDir::Write(dev.File("dri/by-path"), "");
    EXPECT_FALSE(HasGpuDeviceNode(dev.Path()));
    for (const char* node : {"dri/renderD128", "nvidiactl", "dxg"})
    {
        TempDir other;
        ::mkdir(other.File("dri").c_str(), 0755);
        TempDir::Write(other.File(node), "");
        EXPECT_TRUE(HasGpuDeviceNode(other.Path())) << node;
    }
}
} // namespace
