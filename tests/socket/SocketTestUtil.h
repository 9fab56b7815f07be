#pragma once
#include <cstdint>

#include "share/socket/SocketPlatform.h"

namespace socket_test
{
/// Bounds blocking receives and accepts of a stream or datagram socket, so a
/// fault ends the test instead of hanging it. Winsock takes the limit in
/// milliseconds, the BSD sockets as a timeval.
template <class Socket> void BoundBlockingCalls(Socket& socket)
{
#ifdef _WIN32
    const std::uint32_t limit = 5000;
#else
    const timeval limit{5, 0};
#endif
    socket.SetOption(SOL_SOCKET, SO_RCVTIMEO, reinterpret_cast<const char*>(&limit), sizeof(limit));
}
} // namespace socket_test
