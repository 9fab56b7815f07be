#pragma once
// Internal header of the socket library: the one place that knows the
// platform's socket calls. The classes of zul::socket call only what is
// declared here. Users of the library need the types and the error-code
// constants, nothing else; those come from SocketTypes_<platform>.h, which the
// build names in ZUL_SOCKET_TYPES.
#include <cstdint>
#include <string>
#include <vector>

#include ZUL_SOCKET_TYPES

#include "share/common/TString.h"

namespace zul::socket
{
namespace platform
{
enum class SocketKind
{
    Stream,
    Datagram
};

/// An IPv4 socket of the given kind, or kInvalidSocket. Not inherited by
/// child processes (the patcher is started from the same process).
SocketHandle Open(SocketKind kind);
/// As Open, with the default protocol and, on Windows, without overlapped
/// I/O: for a socket that is only bound and closed, never waited on.
SocketHandle OpenPlain(SocketKind kind);
/// False when the platform reports an error; the handle is gone either way.
bool Close(SocketHandle hSocket);
/// The error code of the last failed call on this thread.
int LastError();

bool SetNonBlocking(SocketHandle hSocket, bool bNonBlocking);
/// Bytes waiting to be read; false on failure.
bool GetReadableBytes(SocketHandle hSocket, std::uint32_t& nBytes);
/// Bytes given to a stream socket that the peer has not acknowledged yet
/// (still to be sent, or in flight); false on failure.
bool GetUnacknowledgedBytes(SocketHandle hSocket, std::uint32_t& nBytes);

bool Bind(SocketHandle hSocket, const sockaddr_in& addr);
bool Listen(SocketHandle hSocket, int nBacklog);
/// The accepted socket or kInvalidSocket; fills the peer's address.
SocketHandle Accept(SocketHandle hSocket, sockaddr_in& peer);
/// Connects, giving up after nTimeoutMs; 0 on success, else the error code
/// (kTimedOut when the peer never answered). The socket's blocking mode is
/// the same afterwards. A socket its user made non-blocking gets the plain
/// connect, where a connection still in progress is an error.
int ConnectWithin(SocketHandle hSocket, const sockaddr_in& addr, std::uint32_t nTimeoutMs);
/// Waits until the socket can take more data: 1 ready, 0 timed out, -1 error.
int WaitWritable(SocketHandle hSocket, std::uint32_t nTimeoutMs);
/// Waits until the socket has data to read (or the peer closed, or an error
/// is pending): 1 ready, 0 timed out, -1 error.
int WaitReadable(SocketHandle hSocket, std::uint32_t nTimeoutMs);

/// Never raises SIGPIPE: a vanished peer is an error result, not a signal.
int Send(SocketHandle hSocket, const void* pData, int nLength, int flags);
/// As Send, but returns at once (would-block error) instead of waiting, also
/// on a blocking socket.
int SendNow(SocketHandle hSocket, const void* pData, int nLength);
int Receive(SocketHandle hSocket, void* pBuffer, int nLength, int flags);
int SendTo(SocketHandle hSocket, const void* pData, int nLength, const sockaddr_in& to);
int ReceiveFrom(SocketHandle hSocket, void* pBuffer, int nLength, sockaddr_in& from);

bool GetSockName(SocketHandle hSocket, sockaddr_in& addr);
bool GetPeerName(SocketHandle hSocket, sockaddr_in& addr);
bool GetOption(SocketHandle hSocket, int level, int name, void* pValue, int* pLength);
bool SetOption(SocketHandle hSocket, int level, int name, const void* pValue, int nLength);

// The options whose Winsock forms have no counterpart of the same name.
bool SetLinger(SocketHandle hSocket, std::uint16_t nSeconds);
bool SetDontLinger(SocketHandle hSocket);
/// bOn and nSeconds stay false/0 when the query fails.
bool GetLinger(SocketHandle hSocket, bool& bOn, std::uint16_t& nSeconds);
bool EnableExclusiveAddress(SocketHandle hSocket);
bool DisableExclusiveAddress(SocketHandle hSocket);
/// bExclusive stays false when the query fails.
bool IsExclusiveAddress(SocketHandle hSocket, bool& bExclusive);
bool UpdateConnectContext(SocketHandle hSocket);

/// Dotted text of an address (inet_ntoa), as the system's text.
tstring AddressToText(const in_addr& addr);
/// The address of dotted text (inet_addr after trimming). Text that is not an
/// address gives INADDR_NONE, which callers use like any other address.
in_addr TextToAddress(const tstring& text);
/// A zeroed AF_INET address with the given address and host-order port.
sockaddr_in MakeAddress(const in_addr& addr, std::uint16_t port);

bool Startup();
void Cleanup();
/// The machine's host name; false on failure.
bool GetHostName(std::string& name);
/// The first IPv4 address of a host name; false when it does not resolve.
bool ResolveIPv4(const std::string& host, in_addr& addr);

/// One network adapter as the system lists it.
struct AdapterInfo
{
    std::string name;
    bool bEthernet = false;
    /// First IPv4 address as dotted text; empty when the adapter has none.
    std::string firstIPv4;
};
/// Every adapter, in the order the system reports them.
std::vector<AdapterInfo> ListAdapters();
} // namespace platform
} // namespace zul::socket
