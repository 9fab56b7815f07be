#pragma once
#include <sys/socket.h>
#include <sys/time.h>

namespace socket_test
{
/// Bounds blocking receives and accepts of a stream or datagram socket, so a
/// fault ends the test instead of hanging it.
template <class Socket> void BoundBlockingCalls(Socket& socket)
{
    const timeval limit{5, 0};
    socket.SetOption(SOL_SOCKET, SO_RCVTIMEO, reinterpret_cast<const char*>(&limit), sizeof(limit));
}
} // namespace socket_test
