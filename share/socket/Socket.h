#pragma once
// Start-up and addresses: the free functions of zul::socket. None throws and
// none records an error code; failures are false, "" or an empty list.
#include <list>

#include "share/common/TString.h"

namespace zul::socket
{
/// True when the socket layer is ready (always, on POSIX).
bool Startup();
void Cleanup();

/// Dotted text of the host's first IPv4 address; "" when it does not resolve.
tstring ResolveHost(const tstring& host);
/// The machine's host name; "" on failure.
tstring GetLocalHostName();
/// False for "", 0.0.0.0, 10/8, 172.16/12, 192.168/16 and 127.0.0.1. Text
/// that is not an address reads as 255.255.255.255 and so counts as public.
bool IsPublicAddress(const tstring& address);
/// The first IPv4 address of each Ethernet adapter, in system order;
/// "0.0.0.0" for an Ethernet adapter without one.
std::list<tstring> GetAdapterAddresses();
/// The first adapter address that is public; "" when there is none.
tstring GetPublicAddress();
} // namespace zul::socket
