// jumbo_echo_server PORT SECONDS: an extended service that answers each probe
// three times with the largest UDP datagram IPv4 carries (65,507 bytes), so a
// client's receives meet several oversized datagrams queued at once. Hellos
// get a Welcome; nothing else is answered, and no TCP stream is accepted.
// Prints "ready" once bound; ends after SECONDS.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "RigInspector/ExtendedWire.h"

int main(int argc, char** argv)
{
    if (argc != 3)
    {
        std::fprintf(stderr, "usage: jumbo_echo_server PORT SECONDS\n");
        return 2;
    }
    const int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(std::atoi(argv[1])));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (fd < 0 || ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
    {
        std::perror("jumbo_echo_server: bind");
        return 1;
    }
    const int sendBuffer = 1 << 20;
    ::setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &sendBuffer, sizeof sendBuffer);
    std::printf("ready\n");
    std::fflush(stdout);

    constexpr std::size_t kJumbo = 65507;
    constexpr std::uint64_t kCookie = 0x5EED;
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(std::atoi(argv[2]));
    std::vector<std::uint8_t> buffer(65536);
    unsigned long echoes = 0;
    while (std::chrono::steady_clock::now() < until)
    {
        pollfd readable{fd, POLLIN, 0};
        if (::poll(&readable, 1, 100) <= 0)
            continue;
        sockaddr_in from{};
        socklen_t fromLength = sizeof from;
        const ssize_t n =
            ::recvfrom(fd, buffer.data(), buffer.size(), 0, reinterpret_cast<sockaddr*>(&from), &fromLength);
        const auto message =
            n > 0 ? extended::Decode(buffer.data(), static_cast<std::size_t>(n)) : std::nullopt;
        if (!message)
            continue;
        const auto reply = [&](const extended::Bytes& bytes)
        { ::sendto(fd, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&from), fromLength); };
        if (message->type == extended::Type::Hello)
            reply(extended::Encode({extended::Type::Welcome, kCookie, 0, message->a}));
        else if (message->type == extended::Type::Probe && message->cookie == kCookie)
        {
            extended::Message echo = *message;
            echo.type = extended::Type::Echo;
            const extended::Bytes bytes = extended::Encode(echo, kJumbo);
            for (int i = 0; i < 3; ++i)
                reply(bytes);
            echoes += 3;
        }
    }
    std::printf("echoes %lu\n", echoes);
    return 0;
}
