#pragma once
#include <cstdint>

namespace zul::socket
{
/// True when this process could bind a UDP socket to 0.0.0.0 on the port for
/// exclusive use right now: any other socket on the port, bound to any local
/// address, with or without address sharing, makes it false (so does a
/// socket that cannot be made). Holds nothing once it returns.
bool IsUdpPortFree(std::uint16_t port);
} // namespace zul::socket
