#include <arpa/inet.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <sstream>

#include "ConnectionProbe_posix.h"
#include "PathVerdict.h"

namespace
{
// The kernel's device types (linux/if_arp.h) that matter here.
constexpr int kArpEther = 1;
constexpr int kArpRawIp = 519; // mobile broadband modems
constexpr int kArpLoopback = 772;
constexpr int kArpNone = 65534; // tun, wireguard
constexpr int kArpTunnelTypes[] = {768 /*ipip*/, 769 /*ip6ip6*/, 776 /*sit*/, 778 /*gre*/, 823 /*ip6gre*/};
// /proc/net/wireless's link quality is out of 70 on the common drivers.
constexpr double kWirelessQualityMax = 70.0;
constexpr int kNetlinkTimeoutMs = 1000;

bool Exists(const std::string& path)
{
    struct stat st
    {
    };
    return ::stat(path.c_str(), &st) == 0;
}

std::optional<long long> ReadNumber(const std::string& path)
{
    std::ifstream in(path);
    long long value = 0;
    if (in >> value)
        return value;
    return std::nullopt; // also a link that is down: its speed file reads EINVAL
}

std::string ReadDevType(const std::string& ueventPath)
{
    std::ifstream in(ueventPath);
    std::string line;
    while (std::getline(in, line))
    {
        if (line.compare(0, 8, "DEVTYPE=") == 0)
            return line.substr(8);
    }
    return {};
}

std::optional<int> ReadWirelessPercent(const std::string& wirelessFile, const std::string& name)
{
    // " wlan0: 0000   54.  -56.  -256        0      0      0      0      0        0"
    std::ifstream in(wirelessFile);
    std::string line;
    while (std::getline(in, line))
    {
        const std::size_t colon = line.find(':');
        if (colon == std::string::npos)
            continue;
        std::string iface = line.substr(0, colon);
        iface.erase(0, iface.find_first_not_of(' '));
        if (iface != name)
            continue;
        std::istringstream fields(line.substr(colon + 1));
        std::string status;
        double link = 0.0;
        if (!(fields >> status >> link) || link < 0.0)
            return std::nullopt;
        return static_cast<int>(std::lround(std::min(100.0, link * 100.0 / kWirelessQualityMax)));
    }
    return std::nullopt;
}

/// The index of the interface the kernel's routing would send to dst through,
/// from its own route lookup: /proc/net/route lacks the local table, so
/// 127.0.0.1 would find no route there.
std::optional<unsigned> RouteInterfaceIndex(in_addr dst)
{
    const int fd = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    if (fd < 0)
        return std::nullopt;
    timeval timeout{kNetlinkTimeoutMs / 1000, 0};
    (void)::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);

    struct
    {
        nlmsghdr header;
        rtmsg route;
        char attributes[64];
    } request{};
    request.header.nlmsg_len = NLMSG_LENGTH(sizeof(rtmsg));
    request.header.nlmsg_type = RTM_GETROUTE;
    request.header.nlmsg_flags = NLM_F_REQUEST;
    request.header.nlmsg_seq = 1;
    request.route.rtm_family = AF_INET;
    request.route.rtm_dst_len = 32;
    auto* attribute =
        reinterpret_cast<rtattr*>(reinterpret_cast<char*>(&request) + NLMSG_ALIGN(request.header.nlmsg_len));
    attribute->rta_type = RTA_DST;
    attribute->rta_len = RTA_LENGTH(sizeof dst);
    std::memcpy(RTA_DATA(attribute), &dst, sizeof dst);
    request.header.nlmsg_len = NLMSG_ALIGN(request.header.nlmsg_len) + RTA_LENGTH(sizeof dst);

    std::optional<unsigned> index;
    sockaddr_nl kernel{};
    kernel.nl_family = AF_NETLINK;
    if (::sendto(fd, &request, request.header.nlmsg_len, 0, reinterpret_cast<sockaddr*>(&kernel),
                 sizeof kernel) == static_cast<ssize_t>(request.header.nlmsg_len))
    {
        alignas(nlmsghdr) char answer[8192];
        const ssize_t got = ::recv(fd, answer, sizeof answer, 0);
        int left = got > 0 ? static_cast<int>(got) : 0;
        // NLMSG_OK, spelled without its mixed-sign comparison.
        const auto fits = [](const nlmsghdr* h, int left)
        {
            return left >= static_cast<int>(sizeof(nlmsghdr)) && h->nlmsg_len >= sizeof(nlmsghdr) &&
                   h->nlmsg_len <= static_cast<unsigned>(left);
        };
        for (auto* h = reinterpret_cast<nlmsghdr*>(answer); fits(h, left) && !index; h = NLMSG_NEXT(h, left))
        {
            if (h->nlmsg_type != RTM_NEWROUTE)
                continue; // NLMSG_ERROR: no route
            auto* route = static_cast<rtmsg*>(NLMSG_DATA(h));
            int attributesLeft = static_cast<int>(RTM_PAYLOAD(h));
            for (rtattr* a = RTM_RTA(route); RTA_OK(a, attributesLeft); a = RTA_NEXT(a, attributesLeft))
            {
                if (a->rta_type == RTA_OIF && RTA_PAYLOAD(a) >= sizeof(int))
                {
                    int oif = 0;
                    std::memcpy(&oif, RTA_DATA(a), sizeof oif);
                    if (oif > 0)
                        index = static_cast<unsigned>(oif);
                }
            }
        }
    }
    ::close(fd);
    return index;
}

} // namespace

ConnectionInfo DescribeInterface(const std::string& sysNetRoot, const std::string& wirelessFile,
                                 const std::string& name)
{
    ConnectionInfo info;
    info.interfaceName = name;
    const std::string dir = sysNetRoot + "/" + name + "/";
    const int arpType = static_cast<int>(ReadNumber(dir + "type").value_or(-1));
    const std::string devType = ReadDevType(dir + "uevent");
    bool bTunnelType = arpType == kArpNone;
    for (int t : kArpTunnelTypes)
        bTunnelType = bTunnelType || arpType == t;

    if (arpType == kArpLoopback)
        info.type = ConnectionType::Loopback;
    else if (Exists(dir + "tun_flags") || devType == "wireguard" || bTunnelType)
        info.type = ConnectionType::Tunnel; // a tap device too: it is a VPN's, whatever its frames
    else if (Exists(dir + "wireless") || Exists(dir + "phy80211") || devType == "wlan")
        info.type = ConnectionType::Wifi;
    else if (devType == "wwan" || arpType == kArpRawIp)
        info.type = ConnectionType::Cellular;
    else if (arpType == kArpEther)
        info.type = ConnectionType::Ethernet;

    info.vpnOrTunnel = info.type == ConnectionType::Tunnel;
    // A tunnel's or loopback's speed is a made-up figure; Wi-Fi's sysfs speed is absent.
    if (info.type == ConnectionType::Ethernet || info.type == ConnectionType::Cellular ||
        info.type == ConnectionType::Other)
    {
        const std::optional<long long> speed = ReadNumber(dir + "speed");
        if (speed && *speed > 0)
            info.linkMbps = static_cast<std::uint64_t>(*speed);
    }
    if (info.type == ConnectionType::Wifi)
        info.wifiSignalPercent = ReadWirelessPercent(wirelessFile, name);
    return info;
}

std::optional<ConnectionInfo> ProbeConnection(const std::string& host)
{
    // Dotted IPv4 only: hosts are never looked up by name.
    const std::optional<std::uint32_t> parsed = ParseIPv4(host);
    if (!parsed)
        return std::nullopt;
    in_addr dotted{};
    dotted.s_addr = htonl(*parsed);
    const std::optional<in_addr> address = dotted;
    const std::optional<unsigned> index = RouteInterfaceIndex(*address);
    char name[IF_NAMESIZE] = {};
    if (!index || ::if_indextoname(*index, name) == nullptr)
        return std::nullopt;
    return DescribeInterface("/sys/class/net", "/proc/net/wireless", name);
}
