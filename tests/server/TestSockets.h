#pragma once
// Plain POSIX sockets for talking to the server the way a client would. Every
// wait is bounded; a failure comes back as a value, never as a hang.
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace testnet
{
using Bytes = std::vector<std::uint8_t>;
using Millis = std::chrono::milliseconds;

/// Owns a descriptor.
class Fd
{
public:
    explicit Fd(int fd = -1) : m_Fd(fd) {}
    ~Fd();
    Fd(Fd&& other) noexcept : m_Fd(other.m_Fd) { other.m_Fd = -1; }
    Fd& operator=(Fd&& other) noexcept;
    int Get() const { return m_Fd; }
    void Reset();

private:
    int m_Fd;
};

/// A TCP connection to 127.0.0.1:port; invalid when refused. sendBuffer
/// other than 0 fixes the send buffer's size.
Fd ConnectTcp(std::uint16_t port, int sendBuffer = 0);
/// Sends n bytes; false when the connection failed or stalled for timeout.
bool SendBytes(const Fd& fd, std::size_t n, Millis timeout = Millis(10000));
/// Reads until the server closes; the byte count, or nothing on a time-out.
std::optional<std::uint64_t> ReceiveUntilClosed(const Fd& fd, Millis timeout = Millis(20000));
bool WaitReadable(const Fd& fd, Millis timeout);
bool WaitWritable(const Fd& fd, Millis timeout);

/// A UDP socket bound to address:port (port 0: any).
Fd BindUdp(const std::string& address, std::uint16_t port);
bool SendDatagram(const Fd& fd, const std::string& address, std::uint16_t port, const Bytes& data);
std::optional<Bytes> ReceiveDatagram(const Fd& fd, Millis timeout = Millis(5000));

/// UTF-16LE bytes of an ASCII text.
Bytes Utf16(const std::string& text);
} // namespace testnet
