#pragma once
// Winsock's start-up, apart from the two calls that carry it out, so that a
// test can stand in for a system that grants another version.
#include <winsock2.h>

namespace zul::socket::platform
{
using WsaStartupCall = int(WSAAPI*)(WORD, LPWSADATA);
using WsaCleanupCall = int(WSAAPI*)();

/// Asks startup for version word 0x0002 (2.0). True only when it succeeds
/// and grants exactly 2.0; a grant of any other version is undone with
/// cleanup before false.
bool StartWinsock(WsaStartupCall startup, WsaCleanupCall cleanup);
} // namespace zul::socket::platform
