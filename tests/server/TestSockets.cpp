#include "TestSockets.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace testnet
{
namespace
{
sockaddr_in Address(const std::string& text, std::uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    inet_pton(AF_INET, text.c_str(), &address.sin_addr);
    return address;
}

bool WaitFor(const Fd& fd, short events, Millis timeout)
{
    pollfd p{fd.Get(), events, 0};
    return poll(&p, 1, static_cast<int>(timeout.count())) == 1;
}
} // namespace

Fd::~Fd()
{
    Reset();
}

Fd& Fd::operator=(Fd&& other) noexcept
{
    if (this != &other)
    {
        Reset();
        m_Fd = other.m_Fd;
        other.m_Fd = -1;
    }
    return *this;
}

void Fd::Reset()
{
    if (m_Fd >= 0)
        close(m_Fd);
    m_Fd = -1;
}

Fd ConnectTcp(std::uint16_t port, int sendBuffer)
{
    Fd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (sendBuffer > 0)
        setsockopt(fd.Get(), SOL_SOCKET, SO_SNDBUF, &sendBuffer, sizeof sendBuffer);
    const sockaddr_in address = Address("127.0.0.1", port);
    if (connect(fd.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        return Fd();
    return fd;
}

bool WaitReadable(const Fd& fd, Millis timeout)
{
    return WaitFor(fd, POLLIN, timeout);
}

bool WaitWritable(const Fd& fd, Millis timeout)
{
    return WaitFor(fd, POLLOUT, timeout);
}

bool SendBytes(const Fd& fd, std::size_t n, Millis timeout)
{
    static const std::vector<char> zeros(65536);
    while (n > 0)
    {
        if (!WaitWritable(fd, timeout))
            return false;
        const ssize_t sent =
            send(fd.Get(), zeros.data(), std::min(n, zeros.size()), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0 && errno != EAGAIN)
            return false;
        if (sent > 0)
            n -= static_cast<std::size_t>(sent);
    }
    return true;
}

std::optional<std::uint64_t> ReceiveUntilClosed(const Fd& fd, Millis timeout)
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    std::uint64_t total = 0;
    char buffer[65536];
    for (;;)
    {
        const auto left = std::chrono::duration_cast<Millis>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0 || !WaitReadable(fd, left))
            return std::nullopt;
        const ssize_t n = recv(fd.Get(), buffer, sizeof buffer, MSG_DONTWAIT);
        if (n == 0)
            return total;
        if (n < 0 && errno != EAGAIN)
            return std::nullopt;
        if (n > 0)
            total += static_cast<std::uint64_t>(n);
    }
}

Fd BindUdp(const std::string& address, std::uint16_t port)
{
    Fd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const sockaddr_in local = Address(address, port);
    if (bind(fd.Get(), reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0)
        return Fd();
    return fd;
}

bool SendDatagram(const Fd& fd, const std::string& address, std::uint16_t port, const Bytes& data)
{
    const sockaddr_in to = Address(address, port);
    return sendto(fd.Get(), data.data(), data.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to) ==
           static_cast<ssize_t>(data.size());
}

std::optional<Bytes> ReceiveDatagram(const Fd& fd, Millis timeout)
{
    if (!WaitReadable(fd, timeout))
        return std::nullopt;
    Bytes data(65536);
    const ssize_t n = recv(fd.Get(), data.data(), data.size(), MSG_DONTWAIT);
    if (n < 0)
        return std::nullopt;
    data.resize(static_cast<std::size_t>(n));
    return data;
}

Bytes Utf16(const std::string& text)
{
    Bytes bytes;
    for (char c : text)
    {
        bytes.push_back(static_cast<std::uint8_t>(c));
        bytes.push_back(0);
    }
    return bytes;
}
} // namespace testnet
