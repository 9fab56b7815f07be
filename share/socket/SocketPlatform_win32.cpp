// Winsock 2 form of the socket library's platform layer.
#include "SocketPlatform.h"
#include "WinsockStartup_win32.h"

#include <chrono>
#include <cstring>
#include <iphlpapi.h>
#include <mstcpip.h>
#include <mswsock.h>
#include <mutex>
#include <unordered_set>

#include "share/common/StringUtil.h"

namespace zul::socket::platform
{
namespace
{
// Winsock can set a socket's blocking mode but never tell it, and the bounded
// connect and SendNow must put it back as the user left it: the layer keeps
// the set of sockets its user made non-blocking.
class NonBlockingSet
{
public:
    bool Contains(SocketHandle hSocket)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_sockets.count(hSocket) != 0;
    }
    void Set(SocketHandle hSocket, bool bNonBlocking)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (bNonBlocking)
            m_sockets.insert(hSocket);
        else
            m_sockets.erase(hSocket);
    }

private:
    std::mutex m_mutex;
    std::unordered_set<SocketHandle> m_sockets;
};

NonBlockingSet& NonBlocking()
{
    static NonBlockingSet set;
    return set;
}

bool SetBlockingMode(SocketHandle hSocket, bool bNonBlocking)
{
    u_long mode = bNonBlocking ? 1 : 0;
    return ::ioctlsocket(hSocket, FIONBIO, &mode) == 0;
}

// The patcher is started from the same process: it must not inherit sockets.
SocketHandle NotInherited(SocketHandle hSocket)
{
    if (hSocket != kInvalidSocket)
        ::SetHandleInformation(reinterpret_cast<HANDLE>(hSocket), HANDLE_FLAG_INHERIT, 0);
    return hSocket;
}

// select() for one socket: 1 ready, 0 timed out, -1 error. A failed connect
// shows in the exception set, not the write set.
int SelectWritable(SocketHandle hSocket, std::uint32_t nTimeoutMs, bool* pFailed = nullptr)
{
    fd_set writable;
    fd_set failed;
    FD_ZERO(&writable);
    FD_ZERO(&failed);
    FD_SET(hSocket, &writable);
    FD_SET(hSocket, &failed);
    timeval timeout{static_cast<long>(nTimeoutMs / 1000u), static_cast<long>(nTimeoutMs % 1000u) * 1000L};
    const int ready = ::select(0, nullptr, &writable, &failed, &timeout);
    if (ready == SOCKET_ERROR)
        return -1;
    if (pFailed != nullptr)
        *pFailed = FD_ISSET(hSocket, &failed) != 0;
    return ready > 0 ? 1 : 0;
}

template <typename T> bool GetIntOption(SocketHandle hSocket, int level, int name, T& value)
{
    int length = sizeof(value);
    return ::getsockopt(hSocket, level, name, reinterpret_cast<char*>(&value), &length) == 0;
}

template <typename T> bool SetIntOption(SocketHandle hSocket, int level, int name, const T& value)
{
    return ::setsockopt(hSocket, level, name, reinterpret_cast<const char*>(&value), sizeof(value)) == 0;
}
} // namespace

SocketHandle Open(SocketKind kind)
{
    const int type = kind == SocketKind::Stream ? SOCK_STREAM : SOCK_DGRAM;
    const int protocol = kind == SocketKind::Stream ? IPPROTO_TCP : IPPROTO_UDP;
    return NotInherited(::socket(AF_INET, type, protocol));
}

// socket() makes overlapped sockets; WSASocketW without flags makes a plain one.
SocketHandle OpenPlain(SocketKind kind)
{
    const int type = kind == SocketKind::Stream ? SOCK_STREAM : SOCK_DGRAM;
    return NotInherited(::WSASocketW(AF_INET, type, 0, nullptr, 0, 0));
}

bool Close(SocketHandle hSocket)
{
    NonBlocking().Set(hSocket, false);
    return ::closesocket(hSocket) == 0;
}

int LastError()
{
    return ::WSAGetLastError();
}

bool SetNonBlocking(SocketHandle hSocket, bool bNonBlocking)
{
    if (!SetBlockingMode(hSocket, bNonBlocking))
        return false;
    NonBlocking().Set(hSocket, bNonBlocking);
    return true;
}

bool GetReadableBytes(SocketHandle hSocket, std::uint32_t& nBytes)
{
    u_long count = 0;
    if (::ioctlsocket(hSocket, FIONREAD, &count) != 0)
        return false;
    nBytes = static_cast<std::uint32_t>(count);
    return true;
}

// Windows 10 1703 and later tell the bytes in flight (SIO_TCP_INFO). Older
// systems, and Wine, have no such query: there the answer is "nothing
// outstanding", so the upload's end is timed at the last send, as before the
// query existed. A socket that is not there is still an error.
bool GetUnacknowledgedBytes(SocketHandle hSocket, std::uint32_t& nBytes)
{
    DWORD version = 0;
    TCP_INFO_v0 info{};
    DWORD returned = 0;
    if (::WSAIoctl(hSocket, SIO_TCP_INFO, &version, sizeof(version), &info, sizeof(info), &returned, nullptr,
                   nullptr) == 0)
    {
        nBytes = static_cast<std::uint32_t>(info.BytesInFlight);
        return true;
    }
    int type = 0;
    if (!GetIntOption(hSocket, SOL_SOCKET, SO_TYPE, type))
        return false;
    nBytes = 0;
    return true;
}

// An accepted Winsock socket takes the listener's blocking mode; the BSD one
// is always blocking, which is what the library's users expect.
SocketHandle Accept(SocketHandle hSocket, sockaddr_in& peer)
{
    std::memset(&peer, 0, sizeof(peer));
    int length = sizeof(peer);
    const SocketHandle hAccepted =
        NotInherited(::accept(hSocket, reinterpret_cast<sockaddr*>(&peer), &length));
    if (hAccepted != kInvalidSocket && NonBlocking().Contains(hSocket))
        SetBlockingMode(hAccepted, false);
    return hAccepted;
}

int ConnectWithin(SocketHandle hSocket, const sockaddr_in& addr, std::uint32_t nTimeoutMs)
{
    const bool bUserNonBlocking = NonBlocking().Contains(hSocket);
    if (!bUserNonBlocking && !SetBlockingMode(hSocket, true))
        return ::WSAGetLastError();

    int error = 0;
    if (::connect(hSocket, reinterpret_cast<const sockaddr*>(&addr), sizeof(addr)) == SOCKET_ERROR)
    {
        error = ::WSAGetLastError();
        if (error == WSAEWOULDBLOCK && !bUserNonBlocking)
        {
            bool bFailed = false;
            const int ready = SelectWritable(hSocket, nTimeoutMs, &bFailed);
            if (ready == 0)
                error = kTimedOut;
            else if (ready < 0)
                error = ::WSAGetLastError();
            else if (!bFailed)
                error = 0;
            else if (!GetIntOption(hSocket, SOL_SOCKET, SO_ERROR, error))
                error = ::WSAGetLastError();
        }
    }
    if (!bUserNonBlocking)
        SetBlockingMode(hSocket, false);
    return error;
}

int WaitWritable(SocketHandle hSocket, std::uint32_t nTimeoutMs)
{
    return SelectWritable(hSocket, nTimeoutMs);
}

int WaitReadable(SocketHandle hSocket, std::uint32_t nTimeoutMs)
{
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(hSocket, &readable);
    timeval timeout{static_cast<long>(nTimeoutMs / 1000u), static_cast<long>(nTimeoutMs % 1000u) * 1000L};
    const int ready = ::select(0, &readable, nullptr, nullptr, &timeout);
    if (ready == SOCKET_ERROR)
        return -1;
    return ready > 0 ? 1 : 0;
}

// Winsock raises no signal for a vanished peer.
int Send(SocketHandle hSocket, const void* pData, int nLength, int flags)
{
    return ::send(hSocket, static_cast<const char*>(pData), nLength, flags);
}

// Winsock has no per-call MSG_DONTWAIT: a blocking socket is made
// non-blocking for the one call.
int SendNow(SocketHandle hSocket, const void* pData, int nLength)
{
    const bool bBlocking = !NonBlocking().Contains(hSocket);
    if (bBlocking && !SetBlockingMode(hSocket, true))
        return SOCKET_ERROR;
    const int result = ::send(hSocket, static_cast<const char*>(pData), nLength, 0);
    if (bBlocking)
    {
        const int error = ::WSAGetLastError();
        SetBlockingMode(hSocket, false);
        ::WSASetLastError(error);
    }
    return result;
}

int Receive(SocketHandle hSocket, void* pBuffer, int nLength, int flags)
{
    return ::recv(hSocket, static_cast<char*>(pBuffer), nLength, flags);
}

int SendTo(SocketHandle hSocket, const void* pData, int nLength, const sockaddr_in& to)
{
    return ::sendto(hSocket, static_cast<const char*>(pData), nLength, 0,
                    reinterpret_cast<const sockaddr*>(&to), sizeof(to));
}

int ReceiveFrom(SocketHandle hSocket, void* pBuffer, int nLength, sockaddr_in& from)
{
    std::memset(&from, 0, sizeof(from));
    int length = sizeof(from);
    return ::recvfrom(hSocket, static_cast<char*>(pBuffer), nLength, 0, reinterpret_cast<sockaddr*>(&from),
                      &length);
}

bool GetSockName(SocketHandle hSocket, sockaddr_in& addr)
{
    std::memset(&addr, 0, sizeof(addr));
    int length = sizeof(addr);
    return ::getsockname(hSocket, reinterpret_cast<sockaddr*>(&addr), &length) == 0;
}

bool GetPeerName(SocketHandle hSocket, sockaddr_in& addr)
{
    std::memset(&addr, 0, sizeof(addr));
    int length = sizeof(addr);
    return ::getpeername(hSocket, reinterpret_cast<sockaddr*>(&addr), &length) == 0;
}

bool GetOption(SocketHandle hSocket, int level, int name, void* pValue, int* pLength)
{
    int length = pLength != nullptr && *pLength > 0 ? *pLength : 0;
    if (::getsockopt(hSocket, level, name, static_cast<char*>(pValue), &length) != 0)
        return false;
    if (pLength != nullptr)
        *pLength = length;
    return true;
}

bool SetOption(SocketHandle hSocket, int level, int name, const void* pValue, int nLength)
{
    return ::setsockopt(hSocket, level, name, static_cast<const char*>(pValue), nLength) == 0;
}

bool SetLinger(SocketHandle hSocket, std::uint16_t nSeconds)
{
    const linger value{1, nSeconds};
    return SetIntOption(hSocket, SOL_SOCKET, SO_LINGER, value);
}

bool SetDontLinger(SocketHandle hSocket)
{
    const BOOL on = TRUE;
    return SetIntOption(hSocket, SOL_SOCKET, SO_DONTLINGER, on);
}

bool GetLinger(SocketHandle hSocket, bool& bOn, std::uint16_t& nSeconds)
{
    linger value{0, 0};
    const bool bOk = GetIntOption(hSocket, SOL_SOCKET, SO_LINGER, value);
    bOn = value.l_onoff != 0;
    nSeconds = value.l_linger;
    return bOk;
}

bool EnableExclusiveAddress(SocketHandle hSocket)
{
    const BOOL on = TRUE;
    return SetIntOption(hSocket, SOL_SOCKET, SO_EXCLUSIVEADDRUSE, on);
}

bool DisableExclusiveAddress(SocketHandle hSocket)
{
    const BOOL off = FALSE;
    return SetIntOption(hSocket, SOL_SOCKET, SO_EXCLUSIVEADDRUSE, off);
}

bool IsExclusiveAddress(SocketHandle hSocket, bool& bExclusive)
{
    BOOL value = FALSE;
    bExclusive = false;
    if (!GetIntOption(hSocket, SOL_SOCKET, SO_EXCLUSIVEADDRUSE, value))
        return false;
    bExclusive = value != FALSE;
    return true;
}

bool UpdateConnectContext(SocketHandle hSocket)
{
    return ::setsockopt(hSocket, SOL_SOCKET, SO_UPDATE_CONNECT_CONTEXT, nullptr, 0) == 0;
}

bool StartWinsock(WsaStartupCall startup, WsaCleanupCall cleanup)
{
    // Version 2.0, asked for and checked as Winsock's rules have it: a
    // system that can only grant something else has still started, and is
    // undone.
    WSADATA data{};
    if (startup(MAKEWORD(2, 0), &data) != 0)
        return false;
    if (LOBYTE(data.wVersion) != 2 || HIBYTE(data.wVersion) != 0)
    {
        cleanup();
        return false;
    }
    return true;
}

bool Startup()
{
    return StartWinsock(&::WSAStartup, &::WSACleanup);
}

void Cleanup()
{
    ::WSACleanup();
}

// GetAdaptersInfo lists wireless adapters with their own type (IEEE 802.11),
// so the Ethernet type alone tells a wired (or virtual wired) adapter.
std::vector<AdapterInfo> ListAdapters()
{
    std::vector<AdapterInfo> adapters;
    ULONG size = 0;
    if (::GetAdaptersInfo(nullptr, &size) != ERROR_BUFFER_OVERFLOW || size == 0)
        return adapters;
    std::vector<unsigned char> buffer(size);
    auto* pList = reinterpret_cast<IP_ADAPTER_INFO*>(buffer.data());
    if (::GetAdaptersInfo(pList, &size) != NO_ERROR)
        return adapters;
    for (const IP_ADAPTER_INFO* p = pList; p != nullptr; p = p->Next)
    {
        AdapterInfo info;
        info.name = p->AdapterName;
        info.bEthernet = p->Type == MIB_IF_TYPE_ETHERNET;
        const std::string first = p->IpAddressList.IpAddress.String;
        if (first != "0.0.0.0")
            info.firstIPv4 = first;
        adapters.push_back(info);
    }
    return adapters;
}
} // namespace zul::socket::platform
