#pragma once
// Sockets for talking to the server the way a client would, and for holding
// or flooding its ports: TCP through the product's own socket, UDP plain, as
// junk and short datagrams must go out as they are. Every wait is bounded; a
// failure comes back as a value, never as a hang.
#include <arpa/inet.h>
#include <chrono>
#include <cstdint>
#include <memory>
#include <netinet/in.h>
#include <optional>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "share/socket/MSocket.h"

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

inline bool WaitReadable(const Fd& fd, Millis timeout)
{
    pollfd p{fd.Get(), POLLIN, 0};
    return ::poll(&p, 1, static_cast<int>(timeout.count())) == 1;
}

/// The product's own TCP socket, as the checker uses it.
using Tcp = std::unique_ptr<zul::socket::MSocket>;

/// A connection to 127.0.0.1:port, from the loopback address source when
/// given; IsConnected() tells whether it was made.
inline Tcp ConnectTcp(std::uint16_t port, const char16_t* source = nullptr)
{
    auto socket = std::make_unique<zul::socket::MSocket>(0, true);
    if (!(source && !socket->Bind(source, 0)))
        socket->Connect(u"127.0.0.1", port, 5000);
    return socket;
}

/// Sends n bytes; false when the connection failed or stalled for timeout.
inline bool SendBytes(const Tcp& socket, std::size_t n, Millis timeout = Millis(10000))
{
    const std::vector<char> zeros(n);
    return socket->SendBlock(zeros.data(), static_cast<int>(n), static_cast<std::uint32_t>(timeout.count()),
                             nullptr) == zul::socket::MSocket::SendStatus::Sent;
}

/// Reads until the peer closes; the byte count, or nothing on a time-out.
inline std::optional<std::uint64_t> ReceiveUntilClosed(const Tcp& socket, Millis timeout = Millis(20000))
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    std::uint64_t total = 0;
    std::vector<char> buffer(65536);
    socket->SetLastError(0);
    for (;;)
    {
        const auto left = std::chrono::duration_cast<Millis>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0 || socket->WaitReadable(static_cast<std::uint32_t>(left.count())) != 1)
            return std::nullopt;
        const int n = socket->Receive(buffer.data(), static_cast<int>(buffer.size()), 0);
        if (n < 0) // the peer's close records nothing
            return socket->GetLastError() == 0 ? std::optional<std::uint64_t>(total) : std::nullopt;
        total += static_cast<std::uint64_t>(n);
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
    const Tcp socket = ConnectTcp(port);
    const std::string request = "GET " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n";
    std::string response;
    char buffer[4096];
    int n = socket->Send(request.data(), static_cast<int>(request.size()), 0) > 0 ? 1 : -1;
    while (n > 0 && socket->WaitReadable(5000) == 1)
    {
        n = socket->Receive(buffer, sizeof buffer, 0);
        response.append(buffer, static_cast<std::size_t>(std::max(n, 0)));
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
