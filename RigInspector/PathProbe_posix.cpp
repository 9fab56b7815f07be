// UDP probes with IP_RECVERR, as tracepath sends them: no privileges needed.
// The routers' time-exceeded and the server's port-unreachable come back on
// the socket's error queue, each quoting the probe's payload.
#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/errqueue.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "PathProbe.h"

namespace
{
// A port nothing listens on, so the server itself answers "port unreachable".
constexpr std::uint16_t kProbePort = 33434;

class UdpPathProbe : public PathProbe
{
public:
    ~UdpPathProbe() override
    {
        if (m_Fd >= 0)
            ::close(m_Fd);
    }

    std::optional<PathProbeError> Open(std::uint32_t target) override
    {
        m_Fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        if (m_Fd < 0)
            return Failure("no UDP socket");
        const int on = 1;
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_port = htons(kProbePort);
        to.sin_addr.s_addr = htonl(target);
        // Connected once: every probe leaves from the same source port.
        if (::setsockopt(m_Fd, IPPROTO_IP, IP_RECVERR, &on, sizeof on) != 0)
            return Failure("the socket cannot report ICMP errors");
        if (::connect(m_Fd, reinterpret_cast<const sockaddr*>(&to), sizeof to) != 0)
            return Failure("no route to the test server");
        m_Target = target;
        return std::nullopt;
    }

    bool Send(int ttl, std::uint16_t seq) override
    {
        Drain(); // a pending error would fail the next send
        if (::setsockopt(m_Fd, IPPROTO_IP, IP_TTL, &ttl, sizeof ttl) != 0)
            return false;
        // The sequence and its complement: the UDP checksum is the same for
        // every probe, so no router sees a different flow.
        const std::uint16_t payload[2] = {htons(seq), htons(static_cast<std::uint16_t>(~seq))};
        return ::send(m_Fd, payload, sizeof payload, 0) == static_cast<ssize_t>(sizeof payload);
    }

    std::vector<PathProbeAnswer> Receive(std::chrono::steady_clock::time_point until) override
    {
        std::vector<PathProbeAnswer> answers;
        answers.swap(m_Early);
        if (!answers.empty())
            return answers;
        const auto now = std::chrono::steady_clock::now();
        const int ms =
            until <= now
                ? 0
                : static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(until - now).count());
        pollfd p{m_Fd, POLLIN, 0};
        if (::poll(&p, 1, ms) > 0)
            Read(answers);
        return answers;
    }

private:
    std::optional<PathProbeError> Failure(const char* what)
    {
        const int error = errno;
        if (error == EPERM || error == EACCES)
            return PathProbeError{"path_no_permission", std::string("this user may not send the probes (") +
                                                            std::strerror(error) + ")."};
        return PathProbeError{"path_no_socket", std::string(what) + " (" + std::strerror(error) + ")."};
    }

    void Drain() { Read(m_Early); }

    void Read(std::vector<PathProbeAnswer>& answers)
    {
        // Bounded: the queue holds at most the answers to probes sent.
        for (int i = 0; i < 4096; ++i)
        {
            std::uint16_t payload[2] = {};
            char control[512];
            sockaddr_in offender{};
            iovec iov{payload, sizeof payload};
            msghdr msg{};
            msg.msg_name = &offender;
            msg.msg_namelen = sizeof offender;
            msg.msg_iov = &iov;
            msg.msg_iovlen = 1;
            msg.msg_control = control;
            msg.msg_controllen = sizeof control;
            const ssize_t n = ::recvmsg(m_Fd, &msg, MSG_ERRQUEUE | MSG_DONTWAIT);
            if (n < 0)
            {
                // Nothing listens on the probe port, but a datagram may still come.
                char discard[64];
                if (::recv(m_Fd, discard, sizeof discard, MSG_DONTWAIT) >= 0)
                    continue;
                return;
            }
            const auto at = std::chrono::steady_clock::now();
            for (cmsghdr* c = CMSG_FIRSTHDR(&msg); c != nullptr; c = CMSG_NXTHDR(&msg, c))
            {
                if (c->cmsg_level != IPPROTO_IP || c->cmsg_type != IP_RECVERR)
                    continue;
                sock_extended_err ee;
                std::memcpy(&ee, CMSG_DATA(c), sizeof ee);
                if (ee.ee_origin != SO_EE_ORIGIN_ICMP || n < static_cast<ssize_t>(sizeof payload))
                    continue;
                const std::uint16_t seq = ntohs(payload[0]);
                if (static_cast<std::uint16_t>(~seq) != ntohs(payload[1]))
                    continue;
                sockaddr_in from;
                std::memcpy(&from, SO_EE_OFFENDER(reinterpret_cast<sock_extended_err*>(CMSG_DATA(c))),
                            sizeof from);
                const std::uint32_t address = ntohl(from.sin_addr.s_addr);
                // Time exceeded is a router; the server says its port is closed.
                const bool bTarget = ee.ee_type == 3 && ee.ee_code == 3 && address == m_Target;
                answers.push_back({seq, address, bTarget, at});
            }
        }
    }

    int m_Fd = -1;
    std::uint32_t m_Target = 0;
    std::vector<PathProbeAnswer> m_Early; // read while draining before a send
};
} // namespace

std::unique_ptr<PathProbe> MakePathProbe()
{
    return std::make_unique<UdpPathProbe>();
}
