// The GPU's names from a made-up DRM sysfs tree: the card with video memory
// of its own, its vendor and its size past 4 GiB.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "RigInspector/GpuProbes_posix.h"
#include "tests/settings/TempDir.h"

namespace
{
void Write(const std::filesystem::path& path, const std::string& text)
{
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path) << text;
}

TEST(GpuProbes, DrmCardNamedWithItsFullSize)
{
    const TempDir dir;
    const std::filesystem::path drm = std::filesystem::path(dir.Path()) / "drm";
    Write(drm / "card0" / "device" / "vendor", "0x8086\n"); // no VRAM of its own: passed over
    Write(drm / "card1" / "device" / "vendor", "0x1002\n");
    Write(drm / "card1" / "device" / "product_name", "Radeon RX 7900 XTX\n");
    Write(drm / "card1" / "device" / "mem_info_vram_total", "25753026560\n");
    Write(drm / "card1" / "device" / "mem_info_vram_used", "1073741824\n");

    std::uint64_t total = 0, free = 0;
    GpuInfo gpu;
    ASSERT_TRUE(ReadDrmVideoMemory(drm.string(), total, free, &gpu));
    EXPECT_EQ(gpu.name, "Radeon RX 7900 XTX");
    EXPECT_EQ(gpu.vendor, "AMD");
    EXPECT_EQ(gpu.memoryBytes, 25753026560ull);
    EXPECT_FALSE(gpu.integrated);
    EXPECT_EQ(free, 25753026560ull - 1073741824ull);
    EXPECT_EQ(GpuVendorName(0x1234), "0x1234");
}
} // namespace
