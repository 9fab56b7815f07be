#include "PortProbe.h"

#include "SocketPlatform.h"

namespace zul::socket
{
bool IsUdpPortFree(std::uint16_t port)
{
    const SocketHandle hSocket = platform::OpenPlain(platform::SocketKind::Datagram);
    if (hSocket == kInvalidSocket)
        return false;
    in_addr any{};
    any.s_addr = htonl(INADDR_ANY);
    const bool bFree = platform::EnableExclusiveAddress(hSocket) &&
                       platform::Bind(hSocket, platform::MakeAddress(any, port));
    platform::Close(hSocket);
    return bFree;
}
} // namespace zul::socket
