#pragma once
// The Winsock 2 types and error codes of the socket library.
#include <winsock2.h>
#include <ws2tcpip.h>

namespace zul::socket
{
/// The platform's socket handle and the value that means "no socket".
using SocketHandle = SOCKET;
inline constexpr SocketHandle kInvalidSocket = INVALID_SOCKET;

/// Error codes the library and its callers compare against, so nobody spells
/// the platform's numbers.
inline constexpr int kWouldBlock = WSAEWOULDBLOCK;
/// Recorded when a bounded connect or send runs out of time.
inline constexpr int kTimedOut = WSAETIMEDOUT;
/// Recorded by operations that need a socket when there is none.
inline constexpr int kBadHandle = WSAENOTSOCK;
} // namespace zul::socket
