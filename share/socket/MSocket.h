#pragma once
// The library's TCP socket. Every failure is a result (false, -1, 0 or NULL)
// with the platform's error code in GetLastError(); nothing throws.
#include <cstdint>

#include "SocketPlatform.h"
#include "share/common/TString.h"

namespace zul::socket
{
class MSocket
{
public:
    /// How long Connect waits for an answer unless told otherwise: enough
    /// for the kernel to retransmit its SYN three times (1, 3 and 7 s).
    static constexpr std::uint32_t kDefaultConnectTimeoutMs = 10000;

    /// How SendBlock ended.
    enum class SendStatus
    {
        Sent,     ///< the whole block went out
        TimedOut, ///< the deadline passed first; GetLastError() is kTimedOut
        Failed    ///< the connection failed; GetLastError() has the code
    };

    /// bOverlapped 1 asks for an overlapped socket (no meaning on POSIX).
    /// bCreate makes the socket at once; IsValid() tells whether it worked.
    MSocket(int bOverlapped, bool bCreate);
    /// Wraps a socket that accept returned.
    MSocket(SocketHandle hSocket, const sockaddr_in* pPeerAddr);
    virtual ~MSocket();
    MSocket(const MSocket&) = delete;
    MSocket& operator=(const MSocket&) = delete;

    /// False, changing nothing, when the socket already exists.
    bool Create();
    /// False when there is no socket. Keeps the cached ends.
    bool Close();

    /// Connects to dotted text (no name lookup: a name reads as
    /// 255.255.255.255). Gives up after nTimeoutMs with kTimedOut. On a
    /// socket made non-blocking by its user a connect still in progress
    /// counts as failure, as any other error. After a failure, Close and
    /// Create before trying again.
    bool Connect(const tstring& host, std::uint16_t port,
                 std::uint32_t nTimeoutMs = kDefaultConnectTimeoutMs);
    /// Binds to any local address.
    bool Bind(std::uint16_t port);
    /// Binds to the address of host, or to any when host is empty.
    bool Bind(const tstring& host, std::uint16_t port);
    /// Makes the socket a listening one, for Accept.
    bool Listen(int nBacklog);
    /// A new socket for the next connection, owned by the caller, or NULL.
    MSocket* Accept();

    /// Bytes sent; 0 = would block (GetLastError() is kWouldBlock); -1 =
    /// failure. A peer that has gone gives -1, never a signal.
    int Send(const void* pData, int nLength, int flags);
    /// Sends the whole block, continuing short sends, until it is out or
    /// nTimeoutMs have passed since the call; works on a blocking or a
    /// non-blocking socket and leaves its mode alone. *pBytesSent (when not
    /// NULL) receives the bytes that went out, also on time-out or failure,
    /// so a caller can report how far it got.
    SendStatus SendBlock(const void* pData, int nLength, std::uint32_t nTimeoutMs, int* pBytesSent);
    /// Bytes received; 0 = would block (GetLastError() is kWouldBlock); -1 =
    /// failure, or the peer closed (then nothing is recorded).
    int Receive(void* pBuffer, int nLength, int flags);
    /// Waits at most nTimeoutMs for something to read (data, the peer's
    /// close, or an error): 1 ready, 0 timed out, -1 failure (recorded).
    int WaitReadable(std::uint32_t nTimeoutMs);

    bool SetNonBlocking();
    bool SetBlocking();
    /// Bytes waiting to be read; 0 on failure.
    std::uint32_t GetReadableBytes();
    /// Bytes sent that the peer has not acknowledged yet: what Send accepted
    /// but has not really arrived. 0 on failure.
    std::uint32_t GetUnacknowledgedBytes();

    bool IsValid() const { return m_Socket != kInvalidSocket; }
    bool IsOverlapped() const { return m_bOverlapped == 1; }
    /// From the cached peer end only; never asks the system.
    bool IsConnected() const;

    /// Cached texts: "Unknown", "Invalid", "0.0.0.0" or a dotted address.
    /// "Unknown" and "0.0.0.0" (ports: 0) ask the system first.
    tstring GetLocalHost();
    tstring GetPeerHost();
    std::uint16_t GetLocalPort();
    std::uint16_t GetPeerPort();
    void SetLocalAddress(const sockaddr_in* pSockAddr);
    void SetPeerAddress(const sockaddr_in* pSockAddr);

    /// "<Socket host=%s port=%d />" from the cached peer end.
    virtual tstring ToString();

    int GetLastError() const { return m_LastError; }
    void SetLastError(int nCode) { m_LastError = nCode; }

    bool GetOption(int level, int name, char* pValue, int* pLength);
    bool SetOption(int level, int name, const char* pValue, int nLength);

    bool SetLinger(std::uint16_t nSeconds);
    /// Turns SO_LINGER off (Linux has no SO_DONTLINGER).
    bool SetDontLinger();
    /// True when lingering is on; false also when the query fails.
    bool IsLingerOn();
    std::uint16_t GetLingerTime();
    bool EnableNagle();
    bool DisableNagle();
    bool IsNagleEnabled();
    /// The kernel may round or double a size it was given: get != set.
    int GetReceiveBufferSize();
    bool SetReceiveBufferSize(int nSize);
    int GetSendBufferSize();
    bool SetSendBufferSize(int nSize);
    /// Nothing to update on Linux: true for a socket, false without one.
    bool UpdateConnectContext();
    bool EnableReuseAddress();
    bool DisableReuseAddress();
    bool IsReuseAddress();
    /// Exclusive use on Linux is SO_REUSEADDR and SO_REUSEPORT both off:
    /// Enable turns both off, Disable changes nothing (it only checks there
    /// is a socket), Is tells whether both are off.
    bool EnableExclusiveAddress();
    bool DisableExclusiveAddress();
    bool IsExclusiveAddress();

private:
    /// Stores the platform's error code; returns false for `return Fail();`.
    bool Fail();
    bool SetIntOption(int level, int name, int value);
    int GetIntOption(int level, int name);
    void ResetEnds();

    SocketHandle m_Socket;
    int m_bOverlapped;
    sockaddr_in m_LocalAddr;
    tstring m_LocalHost;
    std::uint16_t m_LocalPort;
    sockaddr_in m_PeerAddr;
    tstring m_PeerHost;
    std::uint16_t m_PeerPort;
    int m_LastError;
};
} // namespace zul::socket
