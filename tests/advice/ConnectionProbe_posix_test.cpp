// The connection probe: interface kinds from a made-up sysfs tree, then the
// route lookup on interfaces made in the test's own network namespace
// (netns_sysfs_run.sh): loopback, a veth pair and a tun device.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "RigInspector/ConnectionProbe_posix.h"
#include "tests/settings/TempDir.h"

namespace
{
void Write(const std::filesystem::path& path, const std::string& text)
{
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path) << text;
}

struct FakeInterface
{
    const char* name;
    const char* type; // /sys/class/net/IF/type
    const char* devType;
    bool bWireless, bTunFlags;
    const char* speed; // nullptr: the file reads nothing, as for a link that is down
    ConnectionType expected;
    std::optional<std::uint64_t> expectedMbps;
    std::optional<int> expectedSignal;
};

TEST(ConnectionProbe, InterfaceKindsFromSysfs)
{
    const TempDir dir;
    const std::filesystem::path root = dir.Path();
    const std::string wireless = (root / "wireless").string();
    Write(wireless, "Inter-| sta-|   Quality        |   Discarded packets\n"
                    " face | tus | link level noise |  nwid  crypt   frag  retry   misc | beacon | 22\n"
                    "wlp2s0: 0000   54.  -56.  -256        0      0      0      0      0        0\n"
                    " wlan1: 0000   21.  -89.  -256        0      0      0      0      0        0\n");
    const FakeInterface kinds[] = {
        {"enp3s0", "1", "", false, false, "1000", ConnectionType::Ethernet, 1000, std::nullopt},
        {"eth1", "1", "", false, false, "-1", ConnectionType::Ethernet, std::nullopt, std::nullopt},
        {"eth2", "1", "", false, false, nullptr, ConnectionType::Ethernet, std::nullopt, std::nullopt},
        {"wlp2s0", "1", "wlan", true, false, nullptr, ConnectionType::Wifi, std::nullopt, 77},
        {"wlan1", "1", "wlan", true, false, nullptr, ConnectionType::Wifi, std::nullopt, 30},
        {"wlan2", "1", "", true, false, nullptr, ConnectionType::Wifi, std::nullopt, std::nullopt},
        {"wg0", "65534", "wireguard", false, false, nullptr, ConnectionType::Tunnel, std::nullopt,
         std::nullopt},
        {"tap0", "1", "", false, true, "10", ConnectionType::Tunnel, std::nullopt, std::nullopt},
        {"gre1", "778", "", false, false, nullptr, ConnectionType::Tunnel, std::nullopt, std::nullopt},
        {"wwan0", "519", "wwan", false, false, nullptr, ConnectionType::Cellular, std::nullopt, std::nullopt},
        {"lo", "772", "", false, false, nullptr, ConnectionType::Loopback, std::nullopt, std::nullopt},
        {"ppp0", "512", "", false, false, nullptr, ConnectionType::Other, std::nullopt, std::nullopt},
    };
    for (const FakeInterface& k : kinds)
    {
        const std::filesystem::path ifDir = root / "net" / k.name;
        Write(ifDir / "type", std::string(k.type) + "\n");
        Write(ifDir / "uevent", std::string("INTERFACE=") + k.name + "\n" +
                                    (*k.devType ? std::string("DEVTYPE=") + k.devType + "\n" : ""));
        if (k.bWireless)
            std::filesystem::create_directories(ifDir / "wireless");
        if (k.bTunFlags)
            Write(ifDir / "tun_flags", "0x1002\n");
        Write(ifDir / "speed", k.speed ? std::string(k.speed) + "\n" : "");

        const ConnectionInfo info = DescribeInterface((root / "net").string(), wireless, k.name);
        EXPECT_EQ(info.interfaceName, k.name);
        EXPECT_STREQ(ConnectionTypeName(info.type), ConnectionTypeName(k.expected)) << k.name;
        EXPECT_EQ(info.linkMbps, k.expectedMbps) << k.name;
        EXPECT_EQ(info.wifiSignalPercent, k.expectedSignal) << k.name;
        EXPECT_EQ(info.vpnOrTunnel, k.expected == ConnectionType::Tunnel) << k.name;
    }
}

void Ip(const std::string& args)
{
    ASSERT_EQ(std::system(("ip " + args).c_str()), 0) << "ip " << args;
}

TEST(ConnectionProbe, RouteToTheServerInThisNamespace)
{
    const std::optional<ConnectionInfo> loopback = ProbeConnection("127.0.0.1");
    ASSERT_TRUE(loopback);
    EXPECT_EQ(loopback->interfaceName, "lo");
    EXPECT_EQ(loopback->type, ConnectionType::Loopback);
    EXPECT_FALSE(loopback->linkMbps);

    // Only loopback is up: no route leads to the server.
    EXPECT_FALSE(ProbeConnection("198.18.4.2"));

    Ip("link add rigv0 type veth peer name rigv1");
    Ip("addr add 198.18.4.1/24 dev rigv0");
    Ip("link set rigv0 up");
    Ip("link set rigv1 up");
    const std::optional<ConnectionInfo> veth = ProbeConnection("198.18.4.2");
    ASSERT_TRUE(veth);
    EXPECT_EQ(veth->interfaceName, "rigv0");
    EXPECT_EQ(veth->type, ConnectionType::Ethernet);
    EXPECT_EQ(veth->linkMbps, 10000u); // veth's own figure
    EXPECT_FALSE(veth->vpnOrTunnel);

    Ip("tuntap add dev rigtun0 mode tun");
    Ip("addr add 198.18.5.1/24 dev rigtun0");
    Ip("link set rigtun0 up");
    const std::optional<ConnectionInfo> tun = ProbeConnection("198.18.5.9");
    ASSERT_TRUE(tun);
    EXPECT_EQ(tun->interfaceName, "rigtun0");
    EXPECT_EQ(tun->type, ConnectionType::Tunnel);
    EXPECT_TRUE(tun->vpnOrTunnel);
    EXPECT_FALSE(tun->linkMbps);
}
} // namespace
