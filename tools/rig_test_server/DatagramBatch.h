#pragma once
// Many datagrams per system call (recvmmsg/sendmmsg on Linux): under a flood
// the calls, not the work per ping, are what a server spends its CPU on.
#include <array>
#include <cstddef>
#include <cstdint>

struct Datagram
{
    /// Room for any ping a client sends ("ping -2147483648 -2147483648" is
    /// 56 bytes); a longer datagram arrives cut short and marked so.
    static constexpr std::size_t kCapacity = 256;

    std::uint32_t m_Address = 0; // IPv4, host byte order
    std::uint16_t m_Port = 0;
    std::uint32_t m_Destination = 0; // the local address it came to (received ones, after EnableDestination)
    std::uint16_t m_Size = 0;
    bool m_bTruncated = false;
    std::array<std::uint8_t, kCapacity> m_Data;
};

/// Receives up to nCount datagrams that are waiting, without blocking: how
/// many came, 0 when none was waiting, -1 on another error (errno says).
int ReceiveDatagrams(int fd, Datagram* pDatagrams, int nCount);

/// Sends nCount datagrams without blocking: how many the system took, which
/// are the first ones; -1 when it took none (errno says why).
int SendDatagrams(int fd, const Datagram* pDatagrams, int nCount);

/// Asks the system to tell each received datagram's destination address.
bool EnableDestination(int fd);

/// Lets more sockets bind the same port (SO_REUSEPORT); false when refused.
bool SharePort(int fd);
