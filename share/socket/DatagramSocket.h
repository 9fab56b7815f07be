#pragma once
// One UDP socket with its 64 KiB receive buffer inside the object (keep it on
// a thread's stack or the heap, not in a small frame). Sends a Datagram's
// bytes to the Datagram's address; receives into Datagrams lent by the
// DatagramPool, which the caller gives back with Release.
#include <cstdint>

#include "Datagram.h"
#include "SocketPlatform.h"
#include "share/common/TString.h"

namespace zul::socket
{
class DatagramSocket
{
public:
    static constexpr int kReceiveBufferSize = 65536;

    /// Binds to any local address unless port is 0 (then the system picks a
    /// port at the first send). A failed bind is recorded and leaves an
    /// unbound socket; a socket that cannot be made is the assertion failure
    /// "Create( bOverlapped )".
    DatagramSocket(std::uint16_t port, bool bOverlapped);
    /// Binds to the address of host, also for port 0.
    DatagramSocket(const tstring& host, std::uint16_t port, bool bOverlapped);
    ~DatagramSocket();
    DatagramSocket(const DatagramSocket&) = delete;
    DatagramSocket& operator=(const DatagramSocket&) = delete;

    /// bOverlapped has no meaning on POSIX. A socket the object already had
    /// is closed first.
    bool Create(bool bOverlapped);
    bool Close();
    bool IsValid() const { return m_Socket != kInvalidSocket; }

    bool SetNonBlocking();
    bool SetBlocking();
    /// The kernel may round or double a size it was given: get != set.
    int GetReceiveBufferSize();
    bool SetReceiveBufferSize(int nSize);
    int GetSendBufferSize();
    bool SetSendBufferSize(int nSize);
    bool GetOption(int level, int name, char* pValue, int* pLength);
    bool SetOption(int level, int name, const char* pValue, int nLength);

    /// Bytes sent, or -1. NULL is the assertion failure "pDatagram != NULL".
    int SendTo(const Datagram* pDatagram);
    /// The next datagram, lent from the pool, or NULL when nothing could be
    /// received (idle non-blocking socket, error, empty datagram) or when
    /// what arrived is shorter than the 8-byte header (a Datagram cannot
    /// hold it, and no valid message is that short: it is dropped, the pool
    /// untouched). Records nothing.
    Datagram* ReceiveFrom();
    /// As ReceiveFrom; bTaken tells whether a datagram left the socket, so a
    /// caller draining it goes on past a short one instead of stopping there.
    Datagram* ReceiveFrom(bool& bTaken);

    /// The address given at construction; the system is not asked.
    tstring GetHost() const;
    std::uint16_t GetPort() const;

    int GetLastError() const { return m_LastError; }
    void SetLastError(int nCode) { m_LastError = nCode; }

private:
    bool Fail();
    int GetIntOption(int level, int name);
    bool SetIntOption(int level, int name, int value);

    SocketHandle m_Socket;
    sockaddr_in m_LocalAddr;
    std::uint8_t m_RecvBuffer[kReceiveBufferSize];
    int m_LastError;
};
} // namespace zul::socket
