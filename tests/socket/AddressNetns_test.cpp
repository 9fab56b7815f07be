// Runs in its own network namespace: the adapters it makes vanish with it.
#include <cstdlib>
#include <gtest/gtest.h>
#include <list>
#include <sched.h>
#include <set>

#include "share/socket/Socket.h"

TEST(SocketAddresses, EthernetAdaptersInSystemOrder)
{
    // A namespace of the test's own, whatever ran it, so that the devices
    // never touch the machine's network.
    if (::unshare(CLONE_NEWNET) != 0)
        GTEST_SKIP() << "makes network devices: needs a network namespace of its own";
    // Loopback alone: nothing listed.
    EXPECT_TRUE(zul::socket::GetAdapterAddresses().empty());
    EXPECT_EQ(u"", zul::socket::GetPublicAddress());

    ASSERT_EQ(0, std::system(
                     "ip link add rigbr0 type bridge && ip addr add 10.0.0.1/24 dev rigbr0 && "
                     "ip addr add 10.0.0.2/24 dev rigbr0 && ip link add rigbr1 type bridge && "
                     "ip link add rigv0 type veth peer name rigv1 && ip addr add 203.0.113.5/24 dev rigv0"));
    const std::list<tstring> addresses = zul::socket::GetAdapterAddresses();
    ASSERT_EQ(4u, addresses.size());
    auto it = addresses.begin();
    EXPECT_EQ(u"10.0.0.1", *it++) << "only the first address of an adapter";
    EXPECT_EQ(u"0.0.0.0", *it++) << "an adapter without an address";
    // The two ends of the veth pair come in the order the kernel numbered them.
    EXPECT_EQ((std::multiset<tstring>{u"203.0.113.5", u"0.0.0.0"}),
              std::multiset<tstring>(it, addresses.end()));
    EXPECT_EQ(u"203.0.113.5", zul::socket::GetPublicAddress());
}
