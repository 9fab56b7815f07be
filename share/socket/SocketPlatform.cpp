// The socket layer's calls that read the same on BSD sockets and Winsock.
#include "SocketPlatform.h"

#include "share/common/StringUtil.h"

namespace zul::socket::platform
{
bool Bind(SocketHandle hSocket, const sockaddr_in& addr)
{
    return ::bind(hSocket, reinterpret_cast<const sockaddr*>(&addr), sizeof(addr)) == 0;
}

bool Listen(SocketHandle hSocket, int nBacklog)
{
    return ::listen(hSocket, nBacklog) == 0;
}

tstring AddressToText(const in_addr& addr)
{
    return zul::ToWide(::inet_ntoa(addr));
}

in_addr TextToAddress(const tstring& text)
{
    in_addr addr{};
    addr.s_addr = ::inet_addr(zul::ToMultiByte(text).c_str());
    return addr;
}

sockaddr_in MakeAddress(const in_addr& addr, std::uint16_t port)
{
    sockaddr_in result{};
    result.sin_family = AF_INET;
    result.sin_port = htons(port);
    result.sin_addr = addr;
    return result;
}

bool GetHostName(std::string& name)
{
    char buffer[256] = {};
    if (::gethostname(buffer, sizeof(buffer) - 1) != 0)
        return false;
    name = buffer;
    return true;
}

bool ResolveIPv4(const std::string& host, in_addr& addr)
{
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* pList = nullptr;
    if (::getaddrinfo(host.c_str(), nullptr, &hints, &pList) != 0 || pList == nullptr)
        return false;
    addr = reinterpret_cast<const sockaddr_in*>(pList->ai_addr)->sin_addr;
    ::freeaddrinfo(pList);
    return true;
}
} // namespace zul::socket::platform
