// BSD-socket form of the socket library's platform layer.
#include "SocketPlatform.h"

#include <arpa/inet.h>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <ifaddrs.h>
#include <linux/if_packet.h>
#include <linux/sockios.h>
#include <map>
#include <net/if.h>
#include <net/if_arp.h>
#include <netdb.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "share/common/StringUtil.h"

namespace zul::socket::platform
{
namespace
{
using Clock = std::chrono::steady_clock;

// SIOCGIWNAME from <linux/wireless.h>, whose <linux/if.h> clashes with <net/if.h>.
constexpr unsigned long kSiocGiwName = 0x8B01;

int RemainingMs(Clock::time_point deadline)
{
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left > 0 ? static_cast<int>(left) : 0;
}

// Waits for one poll event until the deadline, through interruptions.
int PollUntil(SocketHandle hSocket, short events, Clock::time_point deadline)
{
    for (;;)
    {
        pollfd pfd{hSocket, events, 0};
        const int result = ::poll(&pfd, 1, RemainingMs(deadline));
        if (result >= 0 || errno != EINTR)
            return result;
    }
}

std::string ReadFirstLine(const std::string& path)
{
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    return line;
}

std::string MacText(const unsigned char* pAddr, int nLength)
{
    std::string text;
    char part[4];
    for (int i = 0; i < nLength; ++i)
    {
        std::snprintf(part, sizeof(part), i == 0 ? "%02x" : ":%02x", pAddr[i]);
        text += part;
    }
    return text;
}

// The wireless-extensions query is answered by the device in our own network
// namespace. sysfs is only believed when its entry is the same device (same
// index and hardware address), because inside a namespace whose /sys was not
// remounted it shows the host's devices under possibly the same names.
bool IsWireless(const std::string& name, const sockaddr_ll& link)
{
    const SocketHandle hProbe = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (hProbe != kInvalidSocket)
    {
        ifreq request{};
        std::strncpy(request.ifr_name, name.c_str(), IFNAMSIZ - 1);
        const bool bWireless = ::ioctl(hProbe, kSiocGiwName, &request) == 0;
        ::close(hProbe);
        if (bWireless)
            return true;
    }
    const std::string base = "/sys/class/net/" + name + "/";
    if (ReadFirstLine(base + "ifindex") != std::to_string(link.sll_ifindex) ||
        ReadFirstLine(base + "address") != MacText(link.sll_addr, link.sll_halen))
        return false;
    return ::access((base + "phy80211").c_str(), F_OK) == 0 ||
           ::access((base + "wireless").c_str(), F_OK) == 0;
}
} // namespace

SocketHandle Open(SocketKind kind)
{
    const int type = kind == SocketKind::Stream ? SOCK_STREAM : SOCK_DGRAM;
    return ::socket(AF_INET, type | SOCK_CLOEXEC, 0);
}

SocketHandle OpenPlain(SocketKind kind)
{
    return Open(kind);
}

bool Close(SocketHandle hSocket)
{
    return ::close(hSocket) == 0;
}

int LastError()
{
    return errno;
}

bool SetNonBlocking(SocketHandle hSocket, bool bNonBlocking)
{
    const int flags = ::fcntl(hSocket, F_GETFL);
    if (flags == -1)
        return false;
    const int wanted = bNonBlocking ? (flags | O_NONBLOCK) : (flags & ~O_NONBLOCK);
    return wanted == flags || ::fcntl(hSocket, F_SETFL, wanted) == 0;
}

bool GetReadableBytes(SocketHandle hSocket, std::uint32_t& nBytes)
{
    int count = 0;
    if (::ioctl(hSocket, FIONREAD, &count) == -1)
        return false;
    nBytes = static_cast<std::uint32_t>(count);
    return true;
}

bool GetUnacknowledgedBytes(SocketHandle hSocket, std::uint32_t& nBytes)
{
    int count = 0;
    if (::ioctl(hSocket, SIOCOUTQ, &count) == -1)
        return false;
    nBytes = static_cast<std::uint32_t>(count);
    return true;
}

SocketHandle Accept(SocketHandle hSocket, sockaddr_in& peer)
{
    std::memset(&peer, 0, sizeof(peer));
    socklen_t length = sizeof(peer);
    return ::accept4(hSocket, reinterpret_cast<sockaddr*>(&peer), &length, SOCK_CLOEXEC);
}

int ConnectWithin(SocketHandle hSocket, const sockaddr_in& addr, std::uint32_t nTimeoutMs)
{
    const auto deadline = Clock::now() + std::chrono::milliseconds(nTimeoutMs);
    const int flags = ::fcntl(hSocket, F_GETFL);
    if (flags == -1)
        return errno;
    const bool bUserNonBlocking = (flags & O_NONBLOCK) != 0;
    if (!bUserNonBlocking && ::fcntl(hSocket, F_SETFL, flags | O_NONBLOCK) == -1)
        return errno;

    int error = 0;
    if (::connect(hSocket, reinterpret_cast<const sockaddr*>(&addr), sizeof(addr)) == -1)
    {
        error = errno;
        if (error == EINPROGRESS && !bUserNonBlocking)
        {
            const int ready = PollUntil(hSocket, POLLOUT, deadline);
            if (ready == 0)
                error = kTimedOut;
            else if (ready < 0)
                error = errno;
            else
            {
                socklen_t length = sizeof(error);
                if (::getsockopt(hSocket, SOL_SOCKET, SO_ERROR, &error, &length) == -1)
                    error = errno;
            }
        }
    }
    if (!bUserNonBlocking)
        ::fcntl(hSocket, F_SETFL, flags);
    return error;
}

int WaitWritable(SocketHandle hSocket, std::uint32_t nTimeoutMs)
{
    const int ready = PollUntil(hSocket, POLLOUT, Clock::now() + std::chrono::milliseconds(nTimeoutMs));
    return ready > 0 ? 1 : ready;
}

int WaitReadable(SocketHandle hSocket, std::uint32_t nTimeoutMs)
{
    const int ready = PollUntil(hSocket, POLLIN, Clock::now() + std::chrono::milliseconds(nTimeoutMs));
    return ready > 0 ? 1 : ready;
}

int Send(SocketHandle hSocket, const void* pData, int nLength, int flags)
{
    return static_cast<int>(::send(hSocket, pData, static_cast<size_t>(nLength), flags | MSG_NOSIGNAL));
}

int SendNow(SocketHandle hSocket, const void* pData, int nLength)
{
    return static_cast<int>(
        ::send(hSocket, pData, static_cast<size_t>(nLength), MSG_NOSIGNAL | MSG_DONTWAIT));
}

int Receive(SocketHandle hSocket, void* pBuffer, int nLength, int flags)
{
    return static_cast<int>(::recv(hSocket, pBuffer, static_cast<size_t>(nLength), flags));
}

int SendTo(SocketHandle hSocket, const void* pData, int nLength, const sockaddr_in& to)
{
    return static_cast<int>(::sendto(hSocket, pData, static_cast<size_t>(nLength), MSG_NOSIGNAL,
                                     reinterpret_cast<const sockaddr*>(&to), sizeof(to)));
}

int ReceiveFrom(SocketHandle hSocket, void* pBuffer, int nLength, sockaddr_in& from)
{
    std::memset(&from, 0, sizeof(from));
    socklen_t length = sizeof(from);
    return static_cast<int>(::recvfrom(hSocket, pBuffer, static_cast<size_t>(nLength), 0,
                                       reinterpret_cast<sockaddr*>(&from), &length));
}

bool GetSockName(SocketHandle hSocket, sockaddr_in& addr)
{
    std::memset(&addr, 0, sizeof(addr));
    socklen_t length = sizeof(addr);
    return ::getsockname(hSocket, reinterpret_cast<sockaddr*>(&addr), &length) == 0;
}

bool GetPeerName(SocketHandle hSocket, sockaddr_in& addr)
{
    std::memset(&addr, 0, sizeof(addr));
    socklen_t length = sizeof(addr);
    return ::getpeername(hSocket, reinterpret_cast<sockaddr*>(&addr), &length) == 0;
}

bool GetOption(SocketHandle hSocket, int level, int name, void* pValue, int* pLength)
{
    socklen_t length = pLength != nullptr && *pLength > 0 ? static_cast<socklen_t>(*pLength) : 0;
    if (::getsockopt(hSocket, level, name, pValue, &length) == -1)
        return false;
    if (pLength != nullptr)
        *pLength = static_cast<int>(length);
    return true;
}

bool SetOption(SocketHandle hSocket, int level, int name, const void* pValue, int nLength)
{
    return ::setsockopt(hSocket, level, name, pValue, static_cast<socklen_t>(nLength)) == 0;
}

// Linux's struct linger holds two ints (8 bytes), not Winsock's two shorts.
bool SetLinger(SocketHandle hSocket, std::uint16_t nSeconds)
{
    const linger value{1, nSeconds};
    return ::setsockopt(hSocket, SOL_SOCKET, SO_LINGER, &value, sizeof(value)) == 0;
}

// There is no SO_DONTLINGER: turning SO_LINGER off is the same request.
bool SetDontLinger(SocketHandle hSocket)
{
    const linger value{0, 0};
    return ::setsockopt(hSocket, SOL_SOCKET, SO_LINGER, &value, sizeof(value)) == 0;
}

bool GetLinger(SocketHandle hSocket, bool& bOn, std::uint16_t& nSeconds)
{
    linger value{0, 0};
    socklen_t length = sizeof(value);
    const bool bOk = ::getsockopt(hSocket, SOL_SOCKET, SO_LINGER, &value, &length) == 0;
    bOn = value.l_onoff != 0;
    nSeconds = static_cast<std::uint16_t>(value.l_linger);
    return bOk;
}

// Linux has no SO_EXCLUSIVEADDRUSE. A bind without SO_REUSEADDR and
// SO_REUSEPORT already refuses a port another socket holds on any address,
// and keeps others from sharing ours; so exclusive use means both off.
bool EnableExclusiveAddress(SocketHandle hSocket)
{
    const int off = 0;
    return ::setsockopt(hSocket, SOL_SOCKET, SO_REUSEADDR, &off, sizeof(off)) == 0 &&
           ::setsockopt(hSocket, SOL_SOCKET, SO_REUSEPORT, &off, sizeof(off)) == 0;
}

// Giving up exclusive use asks for no sharing either, as on Winsock: nothing
// to change. The query only checks that there is a socket to talk about.
bool DisableExclusiveAddress(SocketHandle hSocket)
{
    int value = 0;
    socklen_t length = sizeof(value);
    return ::getsockopt(hSocket, SOL_SOCKET, SO_REUSEADDR, &value, &length) == 0;
}

bool IsExclusiveAddress(SocketHandle hSocket, bool& bExclusive)
{
    int reuseAddr = 0;
    int reusePort = 0;
    socklen_t length = sizeof(int);
    bExclusive = false;
    if (::getsockopt(hSocket, SOL_SOCKET, SO_REUSEADDR, &reuseAddr, &length) == -1)
        return false;
    length = sizeof(int);
    if (::getsockopt(hSocket, SOL_SOCKET, SO_REUSEPORT, &reusePort, &length) == -1)
        return false;
    bExclusive = reuseAddr == 0 && reusePort == 0;
    return true;
}

// A Linux socket's local and peer names are known as soon as connect returns;
// there is no context to update. The query only checks that there is a socket.
bool UpdateConnectContext(SocketHandle hSocket)
{
    int type = 0;
    socklen_t length = sizeof(type);
    return ::getsockopt(hSocket, SOL_SOCKET, SO_TYPE, &type, &length) == 0;
}

// Nothing to start on POSIX.
bool Startup()
{
    return true;
}
void Cleanup() {}

// An adapter is Ethernet when its link type is ARPHRD_ETHER and it is not
// wireless. Virtual Ethernet devices (veth, bridge, dummy, tap) count, as
// Windows lists its virtual Ethernet adapters with the Ethernet type: inside
// a container the veth is the only way out, and on a bridged host the
// bridge, not the enslaved NIC, carries the address.
std::vector<AdapterInfo> ListAdapters()
{
    std::vector<AdapterInfo> adapters;
    ifaddrs* pList = nullptr;
    if (::getifaddrs(&pList) != 0)
        return adapters;
    std::map<std::string, std::size_t> indexByName;
    // Links come first, in index order; addresses follow, primary first.
    for (const ifaddrs* p = pList; p != nullptr; p = p->ifa_next)
    {
        if (p->ifa_addr == nullptr || p->ifa_addr->sa_family != AF_PACKET)
            continue;
        const auto& link = *reinterpret_cast<const sockaddr_ll*>(p->ifa_addr);
        AdapterInfo info;
        info.name = p->ifa_name;
        info.bEthernet = link.sll_hatype == ARPHRD_ETHER && !IsWireless(info.name, link);
        indexByName.emplace(info.name, adapters.size());
        adapters.push_back(info);
    }
    for (const ifaddrs* p = pList; p != nullptr; p = p->ifa_next)
    {
        if (p->ifa_addr == nullptr || p->ifa_addr->sa_family != AF_INET)
            continue;
        // A labelled secondary address is named "eth0:1".
        std::string name = p->ifa_name;
        name = name.substr(0, name.find(':'));
        const auto found = indexByName.find(name);
        if (found == indexByName.end() || !adapters[found->second].firstIPv4.empty())
            continue;
        adapters[found->second].firstIPv4 =
            ::inet_ntoa(reinterpret_cast<const sockaddr_in*>(p->ifa_addr)->sin_addr);
    }
    ::freeifaddrs(pList);
    return adapters;
}
} // namespace zul::socket::platform
