#include "MSocket.h"

#include <chrono>
#include <cstring>

#include "share/common/Format.h"

namespace zul::socket
{
namespace
{
const tstring kUnknown = u"Unknown";
const tstring kInvalid = u"Invalid";
const tstring kAnyAddress = u"0.0.0.0";
} // namespace

MSocket::MSocket(int bOverlapped, bool bCreate)
    : m_Socket(kInvalidSocket), m_bOverlapped(bOverlapped), m_LocalAddr{}, m_LocalHost(kUnknown),
      m_LocalPort(0), m_PeerAddr{}, m_PeerHost(kUnknown), m_PeerPort(0), m_LastError(0)
{
    if (bCreate)
        Create();
}

MSocket::MSocket(SocketHandle hSocket, const sockaddr_in* pPeerAddr)
    : m_Socket(hSocket), m_bOverlapped(0), m_LocalAddr{}, m_LocalHost(kUnknown), m_LocalPort(0), m_PeerAddr{},
      m_PeerHost(kUnknown), m_PeerPort(0), m_LastError(0)
{
    SetPeerAddress(pPeerAddr);
}

MSocket::~MSocket()
{
    Close();
}

bool MSocket::Fail()
{
    m_LastError = platform::LastError();
    return false;
}

void MSocket::ResetEnds()
{
    std::memset(&m_LocalAddr, 0, sizeof(m_LocalAddr));
    std::memset(&m_PeerAddr, 0, sizeof(m_PeerAddr));
    m_LocalPort = 0;
    m_PeerPort = 0;
    m_LocalHost = kUnknown;
    m_PeerHost = kUnknown;
}

bool MSocket::Create()
{
    if (IsValid())
        return false;
    // Overlapped I/O is a Winsock notion; every POSIX socket serves both uses.
    m_Socket = platform::Open(platform::SocketKind::Stream);
    if (!IsValid())
        return Fail();
    ResetEnds();
    m_LastError = 0;
    return true;
}

bool MSocket::Close()
{
    if (!IsValid())
        return false;
    const bool bClosed = platform::Close(m_Socket);
    m_Socket = kInvalidSocket;
    return bClosed;
}

bool MSocket::Connect(const tstring& host, std::uint16_t port, std::uint32_t nTimeoutMs)
{
    m_PeerAddr = platform::MakeAddress(platform::TextToAddress(host), port);
    const int error = platform::ConnectWithin(m_Socket, m_PeerAddr, nTimeoutMs);
    if (error != 0)
    {
        m_LastError = error;
        return false;
    }
    SetPeerAddress(&m_PeerAddr);
    return true;
}

bool MSocket::Bind(std::uint16_t port)
{
    return Bind(tstring(), port);
}

bool MSocket::Bind(const tstring& host, std::uint16_t port)
{
    in_addr addr{};
    addr.s_addr = htonl(INADDR_ANY);
    if (!host.empty())
        addr = platform::TextToAddress(host);
    const sockaddr_in local = platform::MakeAddress(addr, port);
    if (!platform::Bind(m_Socket, local))
        return Fail();
    SetLocalAddress(&local);
    return true;
}

bool MSocket::Listen(int nBacklog)
{
    return platform::Listen(m_Socket, nBacklog) || Fail();
}

MSocket* MSocket::Accept()
{
    sockaddr_in from{};
    const SocketHandle hAccepted = platform::Accept(m_Socket, from);
    if (hAccepted == kInvalidSocket)
    {
        Fail();
        return nullptr;
    }
    return new MSocket(hAccepted, &from);
}

int MSocket::Send(const void* pData, int nLength, int flags)
{
    const int result = platform::Send(m_Socket, pData, nLength, flags);
    if (result >= 0)
        return result;
    Fail();
    return m_LastError == kWouldBlock ? 0 : -1;
}

MSocket::SendStatus MSocket::SendBlock(const void* pData, int nLength, std::uint32_t nTimeoutMs,
                                       int* pBytesSent)
{
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + std::chrono::milliseconds(nTimeoutMs);
    const auto* pBytes = static_cast<const unsigned char*>(pData);
    int nSent = 0;
    SendStatus status = SendStatus::Sent;
    while (nSent < nLength)
    {
        const int result = platform::SendNow(m_Socket, pBytes + nSent, nLength - nSent);
        if (result > 0)
        {
            nSent += result;
            continue;
        }
        if (result < 0 && platform::LastError() != kWouldBlock)
        {
            Fail();
            status = SendStatus::Failed;
            break;
        }
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        const int ready = left > 0 ? platform::WaitWritable(m_Socket, static_cast<std::uint32_t>(left)) : 0;
        if (ready < 0)
        {
            Fail();
            status = SendStatus::Failed;
            break;
        }
        if (ready == 0)
        {
            m_LastError = kTimedOut;
            status = SendStatus::TimedOut;
            break;
        }
    }
    if (pBytesSent != nullptr)
        *pBytesSent = nSent;
    return status;
}

int MSocket::Receive(void* pBuffer, int nLength, int flags)
{
    const int result = platform::Receive(m_Socket, pBuffer, nLength, flags);
    if (result > 0)
        return result;
    if (result == 0)
        return -1; // the peer closed the connection: nothing to record
    Fail();
    return m_LastError == kWouldBlock ? 0 : -1;
}

int MSocket::WaitReadable(std::uint32_t nTimeoutMs)
{
    const int ready = platform::WaitReadable(m_Socket, nTimeoutMs);
    if (ready < 0)
        Fail();
    return ready;
}

bool MSocket::SetNonBlocking()
{
    return platform::SetNonBlocking(m_Socket, true) || Fail();
}

bool MSocket::SetBlocking()
{
    return platform::SetNonBlocking(m_Socket, false) || Fail();
}

std::uint32_t MSocket::GetReadableBytes()
{
    std::uint32_t nBytes = 0;
    if (!platform::GetReadableBytes(m_Socket, nBytes))
    {
        Fail();
        return 0;
    }
    return nBytes;
}

std::uint32_t MSocket::GetUnacknowledgedBytes()
{
    std::uint32_t nBytes = 0;
    if (!platform::GetUnacknowledgedBytes(m_Socket, nBytes))
    {
        Fail();
        return 0;
    }
    return nBytes;
}

bool MSocket::IsConnected() const
{
    return IsValid() && m_PeerHost != kUnknown && m_PeerHost != kInvalid && m_PeerPort != 0;
}

tstring MSocket::GetLocalHost()
{
    if (m_LocalHost == kUnknown || m_LocalHost == kAnyAddress)
    {
        sockaddr_in addr{};
        if (platform::GetSockName(m_Socket, addr))
            SetLocalAddress(&addr);
        else
        {
            Fail();
            m_LocalHost = kInvalid;
        }
    }
    return m_LocalHost;
}

tstring MSocket::GetPeerHost()
{
    if (m_PeerHost == kUnknown || m_PeerHost == kAnyAddress)
    {
        sockaddr_in addr{};
        if (platform::GetPeerName(m_Socket, addr))
            SetPeerAddress(&addr);
        else
        {
            Fail();
            m_PeerHost = kInvalid;
        }
    }
    return m_PeerHost;
}

std::uint16_t MSocket::GetLocalPort()
{
    if (m_LocalPort == 0)
    {
        sockaddr_in addr{};
        if (platform::GetSockName(m_Socket, addr))
            SetLocalAddress(&addr);
        else
            Fail();
    }
    return m_LocalPort;
}

std::uint16_t MSocket::GetPeerPort()
{
    if (m_PeerPort == 0)
    {
        sockaddr_in addr{};
        if (platform::GetPeerName(m_Socket, addr))
            SetPeerAddress(&addr);
        else
            Fail();
    }
    return m_PeerPort;
}

// A NULL address leaves the cached end as it was.
void MSocket::SetLocalAddress(const sockaddr_in* pSockAddr)
{
    if (pSockAddr == nullptr)
        return;
    std::memcpy(&m_LocalAddr, pSockAddr, sizeof(m_LocalAddr));
    m_LocalHost = platform::AddressToText(m_LocalAddr.sin_addr);
    m_LocalPort = ntohs(m_LocalAddr.sin_port);
}

void MSocket::SetPeerAddress(const sockaddr_in* pSockAddr)
{
    if (pSockAddr == nullptr)
        return;
    std::memcpy(&m_PeerAddr, pSockAddr, sizeof(m_PeerAddr));
    m_PeerHost = platform::AddressToText(m_PeerAddr.sin_addr);
    m_PeerPort = ntohs(m_PeerAddr.sin_port);
}

tstring MSocket::ToString()
{
    return zul::FormatString(u"<Socket host=%s port=%d />", m_PeerHost, m_PeerPort);
}

bool MSocket::GetOption(int level, int name, char* pValue, int* pLength)
{
    return platform::GetOption(m_Socket, level, name, pValue, pLength) || Fail();
}

bool MSocket::SetOption(int level, int name, const char* pValue, int nLength)
{
    return platform::SetOption(m_Socket, level, name, pValue, nLength) || Fail();
}

bool MSocket::SetIntOption(int level, int name, int value)
{
    return SetOption(level, name, reinterpret_cast<const char*>(&value), sizeof(value));
}

int MSocket::GetIntOption(int level, int name)
{
    int value = 0;
    int length = sizeof(value);
    GetOption(level, name, reinterpret_cast<char*>(&value), &length);
    return value;
}

bool MSocket::SetLinger(std::uint16_t nSeconds)
{
    return platform::SetLinger(m_Socket, nSeconds) || Fail();
}

bool MSocket::SetDontLinger()
{
    return platform::SetDontLinger(m_Socket) || Fail();
}

bool MSocket::IsLingerOn()
{
    bool bOn = false;
    std::uint16_t nSeconds = 0;
    if (!platform::GetLinger(m_Socket, bOn, nSeconds))
        Fail();
    return bOn;
}

std::uint16_t MSocket::GetLingerTime()
{
    bool bOn = false;
    std::uint16_t nSeconds = 0;
    if (!platform::GetLinger(m_Socket, bOn, nSeconds))
        Fail();
    return nSeconds;
}

bool MSocket::EnableNagle()
{
    return SetIntOption(IPPROTO_TCP, TCP_NODELAY, 0);
}

bool MSocket::DisableNagle()
{
    return SetIntOption(IPPROTO_TCP, TCP_NODELAY, 1);
}

bool MSocket::IsNagleEnabled()
{
    return GetIntOption(IPPROTO_TCP, TCP_NODELAY) == 0;
}

int MSocket::GetReceiveBufferSize()
{
    return GetIntOption(SOL_SOCKET, SO_RCVBUF);
}

bool MSocket::SetReceiveBufferSize(int nSize)
{
    return SetIntOption(SOL_SOCKET, SO_RCVBUF, nSize);
}

int MSocket::GetSendBufferSize()
{
    return GetIntOption(SOL_SOCKET, SO_SNDBUF);
}

bool MSocket::SetSendBufferSize(int nSize)
{
    return SetIntOption(SOL_SOCKET, SO_SNDBUF, nSize);
}

bool MSocket::UpdateConnectContext()
{
    return platform::UpdateConnectContext(m_Socket) || Fail();
}

bool MSocket::EnableReuseAddress()
{
    return SetIntOption(SOL_SOCKET, SO_REUSEADDR, 1);
}

bool MSocket::DisableReuseAddress()
{
    return SetIntOption(SOL_SOCKET, SO_REUSEADDR, 0);
}

bool MSocket::IsReuseAddress()
{
    return GetIntOption(SOL_SOCKET, SO_REUSEADDR) == 1;
}

bool MSocket::EnableExclusiveAddress()
{
    return platform::EnableExclusiveAddress(m_Socket) || Fail();
}

bool MSocket::DisableExclusiveAddress()
{
    return platform::DisableExclusiveAddress(m_Socket) || Fail();
}

bool MSocket::IsExclusiveAddress()
{
    bool bExclusive = false;
    if (!platform::IsExclusiveAddress(m_Socket, bExclusive))
        Fail();
    return bExclusive;
}
} // namespace zul::socket
