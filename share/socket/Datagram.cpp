#include "Datagram.h"

#include <cstring>

#include "share/common/Assert.h"
#include "share/common/Format.h"

namespace zul::socket
{
Datagram::Datagram() : Message(MSG_HEADER_SIZE), m_SockAddr{}
{
    Reset();
}

Datagram::~Datagram()
{
    Destroy();
}

void Datagram::Reset()
{
    Message::Reset();
    std::memset(&m_SockAddr, 0, sizeof(m_SockAddr));
    m_SockAddr.sin_family = AF_INET;
}

tstring Datagram::ToString() const
{
    return zul::FormatString(u"<Datagram host=%s port=%d msg=%s />", GetHost(), GetPort(),
                             Message::ToString());
}

void Datagram::SetSockAddr(const sockaddr_in* pSockAddr)
{
    ZUL_ASSERT(pSockAddr != NULL);
    std::memcpy(&m_SockAddr, pSockAddr, sizeof(m_SockAddr));
}

tstring Datagram::GetHost() const
{
    return platform::AddressToText(m_SockAddr.sin_addr);
}

void Datagram::SetHost(const tstring& host)
{
    m_SockAddr.sin_addr = platform::TextToAddress(host);
}

std::uint16_t Datagram::GetPort() const
{
    return ntohs(m_SockAddr.sin_port);
}

void Datagram::SetPort(std::uint16_t port)
{
    m_SockAddr.sin_port = htons(port);
}
} // namespace zul::socket
