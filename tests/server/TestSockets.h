#pragma once
// Plain POSIX sockets for talking to the server the way a client would, and
// for holding or flooding its ports. Every wait is bounded; a failure comes
// back as a value, never as a hang.
#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <netinet/in.h>
#include <optional>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace testnet
{
using Bytes = std::vector<std::uint8_t>;
using Millis = std::chrono::milliseconds;

/// Owns a descriptor; -1 when the socket could not be made, bound or connected.
struct Fd
{
    explicit Fd(int fd = -1) : m_Fd(fd) {}
    Fd(Fd&& other) noexcept : m_Fd(std::exchange(other.m_Fd, -1)) {}
    Fd& operator=(Fd&& other) noexcept
    {
        std::swap(m_Fd, other.m_Fd);
        return *this;
    }
    ~Fd() { Reset(); }
    int Get() const { return m_Fd; }
    void Reset()
    {
        if (m_Fd >= 0)
            ::close(std::exchange(m_Fd, -1));
    }

private:
    int m_Fd;
};

inline sockaddr_in Address(const std::string& text, std::uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    inet_pton(AF_INET, text.c_str(), &address.sin_addr);
    return address;
}

inline bool WaitFor(const Fd& fd, short events, Millis timeout)
{
    pollfd p{fd.Get(), events, 0};
    return ::poll(&p, 1, static_cast<int>(timeout.count())) == 1;
}
inline bool WaitReadable(const Fd& fd, Millis timeout)
{
    return WaitFor(fd, POLLIN, timeout);
}

/// A TCP connection to 127.0.0.1:port. sendBuffer other than 0 fixes the
/// send buffer's size; source, when given, is the loopback address it comes from.
inline Fd ConnectTcp(std::uint16_t port, int sendBuffer = 0, const char* source = nullptr)
{
    Fd fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (sendBuffer > 0)
        ::setsockopt(fd.Get(), SOL_SOCKET, SO_SNDBUF, &sendBuffer, sizeof sendBuffer);
    const sockaddr_in local = Address(source ? source : "0.0.0.0", 0);
    if (source && ::bind(fd.Get(), reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0)
        return Fd();
    const sockaddr_in to = Address("127.0.0.1", port);
    return ::connect(fd.Get(), reinterpret_cast<const sockaddr*>(&to), sizeof to) == 0 ? std::move(fd) : Fd();
}

/// Sends n bytes; false when the connection failed or stalled for timeout.
inline bool SendBytes(const Fd& fd, std::size_t n, Millis timeout = Millis(10000))
{
    static const std::vector<char> zeros(65536);
    while (n > 0)
    {
        if (!WaitFor(fd, POLLOUT, timeout))
            return false;
        const ssize_t sent =
            ::send(fd.Get(), zeros.data(), std::min(n, zeros.size()), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0 && errno != EAGAIN)
            return false;
        n -= static_cast<std::size_t>(std::max<ssize_t>(sent, 0));
    }
    return true;
}

/// Reads until the peer closes; the byte count, or nothing on a time-out.
inline std::optional<std::uint64_t> ReceiveUntilClosed(const Fd& fd, Millis timeout = Millis(20000))
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    std::uint64_t total = 0;
    char buffer[65536];
    for (;;)
    {
        const auto left = std::chrono::duration_cast<Millis>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0 || !WaitReadable(fd, left))
            return std::nullopt;
        const ssize_t n = ::recv(fd.Get(), buffer, sizeof buffer, MSG_DONTWAIT);
        if (n == 0)
            return total;
        if (n < 0 && errno != EAGAIN)
            return std::nullopt;
        total += static_cast<std::uint64_t>(std::max<ssize_t>(n, 0));
    }
}

/// A UDP socket bound to address:port (port 0: any).
inline Fd BindUdp(const std::string& address, std::uint16_t port)
{
    Fd fd(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const sockaddr_in local = Address(address, port);
    return ::bind(fd.Get(), reinterpret_cast<const sockaddr*>(&local), sizeof local) == 0 ? std::move(fd)
                                                                                          : Fd();
}

inline bool SendDatagram(const Fd& fd, std::uint16_t port, const void* data, std::size_t size)
{
    const sockaddr_in to = Address("127.0.0.1", port);
    return ::sendto(fd.Get(), data, size, 0, reinterpret_cast<const sockaddr*>(&to), sizeof to) ==
           static_cast<ssize_t>(size);
}

inline std::optional<Bytes> ReceiveDatagram(const Fd& fd, Millis timeout = Millis(5000))
{
    Bytes data(65536);
    const ssize_t n =
        WaitReadable(fd, timeout) ? ::recv(fd.Get(), data.data(), data.size(), MSG_DONTWAIT) : -1;
    if (n < 0)
        return std::nullopt;
    data.resize(static_cast<std::size_t>(n));
    return data;
}

/// The body of an HTTP GET of path from 127.0.0.1:port; empty on failure.
inline std::string HttpGet(std::uint16_t port, const std::string& path)
{
    Fd fd = ConnectTcp(port);
    const std::string request = "GET " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n";
    if (fd.Get() < 0 || ::send(fd.Get(), request.data(), request.size(), MSG_NOSIGNAL) < 0)
        return {};
    std::string response;
    char buffer[4096];
    while (WaitReadable(fd, Millis(5000)))
    {
        const ssize_t n = ::recv(fd.Get(), buffer, sizeof buffer, 0);
        if (n <= 0)
            break;
        response.append(buffer, static_cast<std::size_t>(n));
    }
    const auto body = response.find("\r\n\r\n");
    return body == std::string::npos ? std::string() : response.substr(body + 4);
}

/// The value of one sample ("name{labels}") in Prometheus text; -1 when absent.
inline double MetricValue(const std::string& text, const std::string& sample)
{
    const auto at = text.find("\n" + sample + " ");
    return at == std::string::npos ? -1.0 : std::stod(text.substr(at + sample.size() + 2));
}

/// UTF-16LE bytes of an ASCII text.
inline Bytes Utf16(const std::string& text)
{
    Bytes bytes;
    for (char c : text)
        bytes.insert(bytes.end(), {static_cast<std::uint8_t>(c), 0});
    return bytes;
}
} // namespace testnet
