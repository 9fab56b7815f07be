#pragma once
#include <cstdint>

#include "share/socket/SocketPlatform.h"

namespace socket_test
{
// The platform's codes the tests expect, and its form of the receive limit
// (Winsock takes milliseconds, the BSD sockets a timeval).
#ifdef _WIN32
inline constexpr int kRefused = WSAECONNREFUSED;
inline constexpr int kAddressInUse = WSAEADDRINUSE;
inline constexpr int kPeerGone[] = {WSAECONNRESET, WSAECONNABORTED};
inline constexpr std::uint32_t kReceiveLimit = 5000;
#else
inline constexpr int kRefused = ECONNREFUSED;
inline constexpr int kAddressInUse = EADDRINUSE;
inline constexpr int kPeerGone[] = {EPIPE, ECONNRESET};
inline constexpr timeval kReceiveLimit{5, 0};
#endif

/// A send to a peer that has closed its end failed with one of these codes.
inline bool IsGonePeerCode(int code)
{
    return code == kPeerGone[0] || code == kPeerGone[1];
}

/// Bounds blocking receives and accepts of a stream or datagram socket, so a
/// fault ends the test instead of hanging it.
template <class Socket> void BoundBlockingCalls(Socket& socket)
{
    socket.SetOption(SOL_SOCKET, SO_RCVTIMEO, reinterpret_cast<const char*>(&kReceiveLimit),
                     sizeof(kReceiveLimit));
}
} // namespace socket_test
