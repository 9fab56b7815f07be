#include "TestServers.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <vector>

#include "RigInspector/EchoText.h"

namespace
{
constexpr int kPollMs = 50;
constexpr auto kSessionLimit = std::chrono::seconds(60);

sockaddr_in Loopback(std::uint16_t port)
{
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(port);
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return addr;
}

bool WaitReadable(int fd)
{
    pollfd p{fd, POLLIN, 0};
    return ::poll(&p, 1, kPollMs) > 0;
}
} // namespace

TcpTestServer::TcpTestServer(Behaviour behaviour) : m_Behaviour(behaviour)
{
    m_Listener = ::socket(AF_INET, SOCK_STREAM, 0);
    if (m_Behaviour.stopReadingAfter != 0)
    {
        // A small window, so that the client's sends really block once the
        // server stops reading (the accepted socket inherits it).
        const int size = 4096;
        ::setsockopt(m_Listener, SOL_SOCKET, SO_RCVBUF, &size, sizeof(size));
    }
    sockaddr_in addr = Loopback(0);
    ::bind(m_Listener, reinterpret_cast<sockaddr*>(&addr), sizeof(addr));
    ::listen(m_Listener, 4);
    socklen_t length = sizeof(addr);
    ::getsockname(m_Listener, reinterpret_cast<sockaddr*>(&addr), &length);
    m_Port = ntohs(addr.sin_port);
    m_Thread = std::thread([this] { Serve(); });
}

TcpTestServer::~TcpTestServer()
{
    m_bStop = true;
    m_Thread.join();
    ::close(m_Listener);
}

void TcpTestServer::Serve()
{
    const auto deadline = std::chrono::steady_clock::now() + kSessionLimit;
    const auto running = [&] { return !m_bStop && std::chrono::steady_clock::now() < deadline; };
    int fd = -1;
    while (fd < 0 && running())
        if (WaitReadable(m_Listener))
            fd = ::accept(m_Listener, nullptr, nullptr);
    if (fd < 0)
        return;

    const std::uint32_t readLimit = m_Behaviour.stopReadingAfter != 0 ? m_Behaviour.stopReadingAfter : 524288;
    std::uint32_t received = 0;
    std::vector<char> buffer(4096);
    bool peerClosed = false;
    while (received < readLimit && running() && !peerClosed)
    {
        if (!WaitReadable(fd))
            continue;
        const auto want = std::min<std::size_t>(buffer.size(), readLimit - received);
        const ssize_t n = ::recv(fd, buffer.data(), want, 0);
        peerClosed = n <= 0;
        if (n > 0)
            received += static_cast<std::uint32_t>(n);
    }
    if (m_Behaviour.stopReadingAfter != 0 || m_Behaviour.silent)
    {
        // Hold the connection, reading nothing, until the test ends.
        while (running())
            ::usleep(kPollMs * 1000);
        ::close(fd);
        return;
    }
    const timeval limit{5, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
    std::uint32_t sent = 0;
    std::vector<char> block(1024, 'd');
    while (sent < m_Behaviour.sendBytes && running())
    {
        const auto want = std::min<std::size_t>(block.size(), m_Behaviour.sendBytes - sent);
        const ssize_t n = ::send(fd, block.data(), want, MSG_NOSIGNAL);
        if (n <= 0)
            break;
        sent += static_cast<std::uint32_t>(n);
    }
    ::close(fd);
}

UdpEchoTestServer::UdpEchoTestServer(Behaviour behaviour) : m_Behaviour(behaviour)
{
    m_Socket = ::socket(AF_INET, SOCK_DGRAM, 0);
    const sockaddr_in addr = Loopback(9998);
    ::bind(m_Socket, reinterpret_cast<const sockaddr*>(&addr), sizeof(addr));
    m_Thread = std::thread([this] { Serve(); });
}

UdpEchoTestServer::~UdpEchoTestServer()
{
    m_bStop = true;
    m_Thread.join();
    ::close(m_Socket);
}

void UdpEchoTestServer::Serve()
{
    const auto deadline = std::chrono::steady_clock::now() + kSessionLimit;
    const sockaddr_in pongTo = Loopback(20000);
    const auto sendTo = [&](const void* data, std::size_t length)
    { ::sendto(m_Socket, data, length, 0, reinterpret_cast<const sockaddr*>(&pongTo), sizeof(pongTo)); };
    int pings = 0;
    std::vector<std::uint8_t> buffer(2048);
    while (!m_bStop && std::chrono::steady_clock::now() < deadline)
    {
        if (!WaitReadable(m_Socket))
            continue;
        const ssize_t n = ::recv(m_Socket, buffer.data(), buffer.size(), 0);
        const auto ping =
            n > 0 ? EchoText::ParsePing(buffer.data(), static_cast<std::size_t>(n)) : std::nullopt;
        if (!ping)
            continue;
        ++pings;
        if (m_Behaviour.dropEvery != 0 && pings % m_Behaviour.dropEvery == 0)
            continue;
        if (m_Behaviour.junkFirst)
        {
            const std::uint8_t shortOne[4] = {'p', 0, 'o', 0};
            sendTo(shortOne, sizeof(shortOne));
            const auto junk = EchoText::ToBytes(u"pong 1 2 3 junk");
            sendTo(junk.data(), junk.size());
        }
        // A round trip inside one millisecond reads 0 and is ignored by
        // design; a short delay keeps every answer countable.
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        const auto pong = EchoText::FormatPong(ping->m_Seq, ping->m_Tick);
        sendTo(pong.data(), pong.size());
    }
}

HeldUdpPort::HeldUdpPort(std::uint16_t port)
{
    m_Socket = ::socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(port);
    addr.sin_addr.s_addr = htonl(INADDR_ANY);
    m_bHeld = ::bind(m_Socket, reinterpret_cast<const sockaddr*>(&addr), sizeof(addr)) == 0;
}

HeldUdpPort::~HeldUdpPort()
{
    ::close(m_Socket);
}
