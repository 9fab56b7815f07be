// bench_echo_loop: the floor to measure rig_test_server's UDP path against: a
// minimal batched echo loop (recvmmsg/sendmmsg, no parsing, no limits). Each
// datagram goes back to its sender's address at the pong port with "ping"
// turned into "pong" (one byte), as the server's pongs would go.
//
//   bench_echo_loop [--address A] [--port P] [--pong-port Q]
//
// Prints "bench_echo_loop listening" when ready; ends on SIGTERM or SIGINT.
#include <arpa/inet.h>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace
{
constexpr int kBatch = 64;
volatile std::sig_atomic_t s_bStop = 0;

void OnSignal(int)
{
    s_bStop = 1;
}
} // namespace

int main(int argc, char** argv)
{
    std::string address = "127.0.0.1";
    int port = 9998;
    int pongPort = 20000;
    for (int i = 1; i + 1 < argc; i += 2)
    {
        const std::string key = argv[i];
        if (key == "--address")
            address = argv[i + 1];
        else if (key == "--port")
            port = std::atoi(argv[i + 1]);
        else if (key == "--pong-port")
            pongPort = std::atoi(argv[i + 1]);
    }
    struct sigaction action
    {
    };
    action.sa_handler = OnSignal; // no SA_RESTART: the blocking receive returns
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);

    const int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(static_cast<std::uint16_t>(port));
    ::inet_pton(AF_INET, address.c_str(), &local.sin_addr);
    if (fd < 0 || ::bind(fd, reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0)
    {
        std::fprintf(stderr, "bench_echo_loop: cannot bind %s:%d: %s\n", address.c_str(), port,
                     std::strerror(errno));
        return 1;
    }
    std::printf("bench_echo_loop listening\n");
    std::fflush(stdout);

    static unsigned char buffers[kBatch][256];
    iovec vectors[kBatch];
    sockaddr_in peers[kBatch];
    mmsghdr messages[kBatch];
    unsigned long long echoed = 0;
    while (!s_bStop)
    {
        for (int i = 0; i < kBatch; ++i)
        {
            vectors[i] = {buffers[i], sizeof buffers[i]};
            messages[i] = {};
            messages[i].msg_hdr.msg_name = &peers[i];
            messages[i].msg_hdr.msg_namelen = sizeof peers[i];
            messages[i].msg_hdr.msg_iov = &vectors[i];
            messages[i].msg_hdr.msg_iovlen = 1;
        }
        const int n = ::recvmmsg(fd, messages, kBatch, MSG_WAITFORONE, nullptr);
        if (n <= 0)
            continue;
        for (int i = 0; i < n; ++i)
        {
            peers[i].sin_port = htons(static_cast<std::uint16_t>(pongPort));
            vectors[i].iov_len = messages[i].msg_len;
            if (messages[i].msg_len > 2)
                buffers[i][2] = 'o';
        }
        const int sent = ::sendmmsg(fd, messages, static_cast<unsigned>(n), MSG_DONTWAIT);
        echoed += static_cast<unsigned long long>(sent > 0 ? sent : 0);
    }
    std::printf("echoed=%llu\n", echoed);
    ::close(fd);
    return 0;
}
