#include "share/socket/PortProbe.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "tests/server/TestSockets.h"

namespace
{
// Runs in its own network namespace: nobody else holds these ports.
constexpr std::uint16_t kPort = 20000;

// Another program's socket holding the UDP port; invalid if it could not bind.
testnet::Fd Hold(int family, bool bAny, int reuse, int v6only)
{
    testnet::Fd fd(::socket(family, SOCK_DGRAM, 0));
    ::setsockopt(fd.Get(), SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof(reuse));
    sockaddr_in6 addr6{};
    addr6.sin6_family = AF_INET6;
    addr6.sin6_port = htons(kPort);
    // Set explicitly: the system default (bindv6only) differs between machines.
    ::setsockopt(fd.Get(), IPPROTO_IPV6, IPV6_V6ONLY, &v6only, sizeof(v6only));
    const sockaddr_in addr = testnet::Address(bAny ? "0.0.0.0" : "127.0.0.1", kPort);
    const bool bBound = family == AF_INET
                            ? ::bind(fd.Get(), reinterpret_cast<const sockaddr*>(&addr), sizeof(addr)) == 0
                            : ::bind(fd.Get(), reinterpret_cast<const sockaddr*>(&addr6), sizeof(addr6)) == 0;
    return bBound ? std::move(fd) : testnet::Fd();
}
} // namespace

TEST(IsUdpPortFree, AnyOtherHolderOfThePortMakesItUsed)
{
    const struct
    {
        const char* name;
        int family;
        bool bAny;
        int reuse;
        int v6only;
        bool bFree;
    } table[] = {
        {"127.0.0.1", AF_INET, false, 0, 0, false},  {"127.0.0.1 reuse", AF_INET, false, 1, 0, false},
        {"any", AF_INET, true, 0, 0, false},         {"any reuse", AF_INET, true, 1, 0, false},
        {"dual-stack", AF_INET6, true, 0, 0, false}, {"dual-stack reuse", AF_INET6, true, 1, 0, false},
        {"v6only", AF_INET6, true, 0, 1, true}, // leaves the IPv4 port to others
    };
    ASSERT_TRUE(zul::socket::IsUdpPortFree(kPort));
    for (const auto& row : table)
    {
        const testnet::Fd holder = Hold(row.family, row.bAny, row.reuse, row.v6only);
        ASSERT_NE(-1, holder.Get()) << row.name;
        EXPECT_EQ(row.bFree, zul::socket::IsUdpPortFree(kPort)) << row.name;
    }
    // Free again once the holders are gone, and the probe itself holds nothing.
    EXPECT_TRUE(zul::socket::IsUdpPortFree(kPort));
    EXPECT_NE(-1, Hold(AF_INET, true, 0, 0).Get());
}
