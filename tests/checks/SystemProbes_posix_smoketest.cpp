#include <filesystem>

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
    std::uint32_t total = 0, available = 1;
    EXPECT_TRUE(GetSystemMemory(total, available));
    EXPECT_GT(total, 0u);
    EXPECT_LE(available, total);
    EXPECT_GE(GetPhysicalMemoryBytes(), std::uint64_t{total} * kReportMegabyte); // the same size, unsaturated
    const bool found = GetVideoMemory(total, available); // figures left from the memory probe must go
    // Only an integrated GPU is found with 0: it has no memory of its own.
    EXPECT_TRUE(found ? total > 0 || g_lastVideoProbe == VideoProbeDetail::IntegratedOnly
                      : total + available == 0);
}

// Without a time-stamp counter the kernel's figure is the clock: cpufreq's
// kHz first, else the first "cpu MHz" of cpuinfo, else 0.
TEST(KernelCpuClock, CpufreqThenCpuinfo)
{
    TempDir dir;
    const std::string freq = dir.File("cpuinfo_max_freq");
    const std::string info = dir.File("cpuinfo");
    TempDir::Write(info, "processor\t: 0\nBogoMIPS\t: 48.00\ncpu MHz\t\t: 1800.250\ncpu MHz\t\t: 900.0\n");
    EXPECT_EQ(ReadKernelCpuMhz(freq, info), 1800u);
    TempDir::Write(freq, "2400000\n");
    EXPECT_EQ(ReadKernelCpuMhz(freq, info), 2400u);
    EXPECT_EQ(ReadKernelCpuMhz(dir.File("none"), dir.File("none")), 0u);
}

/// Makes path's folders and, with text, the file itself.
void Make(const TempDir& root, const std::string& path, const char* text = nullptr)
{
    std::filesystem::create_directories(std::filesystem::path(root.File(path)).parent_path());
    if (text != nullptr)
        TempDir::Write(root.File(path), text);
}

// The card with video memory of its own, named, with its size past 4 GiB.
TEST(DrmVideoMemory, ReadsTheFirstCardWithVram)
{
    TempDir root;
    std::uint64_t total = 1, free = 1;
    EXPECT_FALSE(ReadDrmVideoMemory(root.Path(), total, free));
    EXPECT_EQ(total, 0u);

    Make(root, "card0/device/vendor", "0x8086\n");              // an integrated GPU without VRAM figures
    Make(root, "card10/device/mem_info_vram_total", "1000\n");  // sorted after card1
    Make(root, "card1-DP-1/device/mem_info_vram_total", "5\n"); // a connector, not a card
    Make(root, "card1/device/vendor", "0x1002\n");
    Make(root, "card1/device/product_name", "Radeon RX 7900 XTX\n");
    Make(root, "card1/device/mem_info_vram_total", "17179869184\n");
    Make(root, "card1/device/mem_info_vram_used", "1073741824\n");
    GpuInfo gpu;
    ASSERT_TRUE(ReadDrmVideoMemory(root.Path(), total, free, &gpu));
    EXPECT_EQ(total, 17179869184u);
    EXPECT_EQ(free, 16106127360u);
    EXPECT_EQ(gpu.name, "Radeon RX 7900 XTX");
    EXPECT_EQ(gpu.vendor, "AMD");
    EXPECT_EQ(gpu.memoryBytes, 17179869184u);
    EXPECT_FALSE(gpu.integrated);
    EXPECT_EQ(GpuVendorName(0x1234), "0x1234");
}

// Without a GPU node the driver probe is skipped; each kind of node enables it.
TEST(GpuDeviceNode, FoundOnlyForDriverNodes)
{
    TempDir dev;
    EXPECT_FALSE(HasGpuDeviceNode(dev.Path()));
    Make(dev, "null", "");
    Make(dev, "dri/by-path", "");
    EXPECT_FALSE(HasGpuDeviceNode(dev.Path()));
    for (const char* node : {"dri/renderD128", "nvidiactl", "dxg"})
    {
        TempDir other;
        Make(other, node, "");
        EXPECT_TRUE(HasGpuDeviceNode(other.Path())) << node;
    }
}
} // namespace
