#pragma once
// A Message with the peer's address: where a datagram goes, or where it came
// from. The bytes from offset 0 to GetLength() are exactly the datagram.
#include <cstdint>

#include "Message.h"
#include "SocketPlatform.h"

namespace zul::socket
{
class Datagram : public Message
{
public:
    /// An 8-byte zeroed buffer, offsets 8, address 0.0.0.0:0.
    Datagram();
    virtual ~Datagram();

    /// Message's offsets back to 8 and the address cleared.
    void Reset() override;
    /// "<Datagram host=%s port=%d msg=%s />".
    virtual tstring ToString() const;

    /// NULL is the assertion failure "pSockAddr != NULL".
    void SetSockAddr(const sockaddr_in* pSockAddr);
    const sockaddr_in* GetSockAddr() const { return &m_SockAddr; }

    tstring GetHost() const;
    void SetHost(const tstring& host);
    std::uint16_t GetPort() const;
    void SetPort(std::uint16_t port);

private:
    sockaddr_in m_SockAddr;
};
} // namespace zul::socket
