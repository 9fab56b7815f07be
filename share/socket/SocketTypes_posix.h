#pragma once
// The BSD-socket types and error codes of the socket library, and the headers
// of the calls it shares with Winsock.
#include <arpa/inet.h>
#include <cerrno>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace zul::socket
{
/// The platform's socket handle and the value that means "no socket".
using SocketHandle = int;
inline constexpr SocketHandle kInvalidSocket = -1;

/// Error codes the library and its callers compare against, so nobody spells
/// the platform's numbers.
inline constexpr int kWouldBlock = EWOULDBLOCK;
/// Recorded when a bounded connect or send runs out of time.
inline constexpr int kTimedOut = ETIMEDOUT;
/// Recorded by operations that need a socket when there is none.
inline constexpr int kBadHandle = EBADF;
} // namespace zul::socket
