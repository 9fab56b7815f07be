#include "share/socket/PortProbe.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace
{
// Runs in its own network namespace: nobody else holds these ports.
constexpr std::uint16_t kPort = 20000;

// One socket of another program, holding a UDP port until it goes.
class Holder
{
public:
    Holder(int family, const char* how) : m_Socket(::socket(family, SOCK_DGRAM, 0))
    {
        const int on = 1;
        const std::string options(how);
        if (options.find("reuse") != std::string::npos)
            ::setsockopt(m_Socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
        if (family == AF_INET6)
        {
            // Set explicitly: the system default (bindv6only) differs between machines.
            const int v6only = options.find("v6only") != std::string::npos ? 1 : 0;
            ::setsockopt(m_Socket, IPPROTO_IPV6, IPV6_V6ONLY, &v6only, sizeof(v6only));
            sockaddr_in6 addr{};
            addr.sin6_family = AF_INET6;
            addr.sin6_port = htons(kPort);
            addr.sin6_addr = in6addr_any;
            m_bBound = ::bind(m_Socket, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) == 0;
            return;
        }
        sockaddr_in addr{};
        addr.sin_family = AF_INET;
        addr.sin_port = htons(kPort);
        addr.sin_addr.s_addr = htonl(options.find("any") != std::string::npos ? INADDR_ANY : INADDR_LOOPBACK);
        m_bBound = ::bind(m_Socket, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) == 0;
    }
    ~Holder() { ::close(m_Socket); }
    bool IsBound() const { return m_bBound; }

private:
    int m_Socket;
    bool m_bBound = false;
};
} // namespace

TEST(IsUdpPortFree, AnyOtherHolderOfThePortMakesItUsed)
{
    const struct
    {
        int family;
        const char* how;
        bool bFree;
    } table[] = {
        {AF_INET, "127.0.0.1", false},
        {AF_INET, "127.0.0.1 reuse", false},
        {AF_INET, "any", false},
        {AF_INET, "any reuse", false},
        {AF_INET6, "dual-stack", false},
        {AF_INET6, "dual-stack reuse", false},
        // A v6-only socket leaves the IPv4 port to others.
        {AF_INET6, "v6only", true},
    };
    ASSERT_TRUE(zul::socket::IsUdpPortFree(kPort));
    for (const auto& row : table)
    {
        Holder holder(row.family, row.how);
        ASSERT_TRUE(holder.IsBound()) << row.how;
        EXPECT_EQ(row.bFree, zul::socket::IsUdpPortFree(kPort)) << row.how;
    }
    EXPECT_TRUE(zul::socket::IsUdpPortFree(kPort)) << "free again once the holders are gone";
}

TEST(IsUdpPortFree, TheProbeHoldsNothingAfterwards)
{
    ASSERT_TRUE(zul::socket::IsUdpPortFree(kPort + 1));
    Holder holder(AF_INET, "any");
    EXPECT_TRUE(holder.IsBound());
}
