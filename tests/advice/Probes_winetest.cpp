// The connection and GPU probes on Wine's DLLs: the route to 127.0.0.1 is
// found, and DXGI gives an adapter by name or nothing; neither crashes or
// hangs where Wine lacks a piece (ctest's time-out bounds the hang).
#include <gtest/gtest.h>

#include "RigInspector/Connection.h"
#include "RigInspector/GpuProbe_win32.h"
#include "RigInspector/SystemProbes.h"

namespace
{
TEST(WineProbes, LoopbackRouteFound)
{
    const std::optional<ConnectionInfo> connection = ProbeConnection("127.0.0.1");
    ASSERT_TRUE(connection);
    EXPECT_EQ(connection->type, ConnectionType::Loopback) << connection->interfaceName;
    EXPECT_FALSE(connection->interfaceName.empty());
    EXPECT_FALSE(connection->wifiSignalPercent);
    EXPECT_FALSE(ProbeConnection("not an address"));
}

TEST(WineProbes, DxgiAdapterOrNothing)
{
    const std::optional<GpuInfo> gpu = ReadDxgiGpu();
    if (gpu)
    {
        EXPECT_FALSE(gpu->name.empty());
        EXPECT_FALSE(gpu->vendor.empty());
        EXPECT_TRUE(gpu->integrated || gpu->memoryBytes > 0) << gpu->name;
    }
    // The video probe publishes what DXGI found, whatever DirectDraw says.
    std::uint32_t total = 0, free = 0;
    (void)GetVideoMemory(total, free);
    ASSERT_EQ(g_lastGpu.has_value(), gpu.has_value());
    if (gpu)
    {
        EXPECT_EQ(g_lastGpu->name, gpu->name);
    }
    std::printf("DXGI: %s\n", gpu ? (gpu->vendor + " " + gpu->name + ", driver " + gpu->driverVersion + ", " +
                                     std::to_string(gpu->memoryBytes) + " bytes")
                                        .c_str()
                                  : "no adapter");
}
} // namespace
