#include "share/socket/Datagram.h"

#include <gtest/gtest.h>

#include "share/common/Error.h"
#include "tests/common/AssertionTestUtil.h"

using zul::socket::Datagram;

TEST(Datagram, AddressIsKeptInNetworkOrderAndShownInToString)
{
    Datagram datagram;
    datagram.SetHost(u" 192.0.2.7\n");
    datagram.SetPort(9998);
    EXPECT_EQ(AF_INET, datagram.GetSockAddr()->sin_family);
    EXPECT_EQ(htons(9998), datagram.GetSockAddr()->sin_port);
    EXPECT_THROW(datagram << std::uint16_t(1), zul::Error); // a new datagram has room for the header only
    EXPECT_EQ(u"<Datagram host=192.0.2.7 port=9998 msg=<Message capacity=8, offset=8/8 /> />",
              datagram.ToString());

    datagram.SetHost(u"not an address");
    EXPECT_EQ(u"255.255.255.255", datagram.GetHost());
    datagram.Reset(); // clears the address as well as the offsets
    EXPECT_EQ(u"0.0.0.0", datagram.GetHost());
    EXPECT_EQ(0, datagram.GetPort());

    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(20000);
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    datagram.SetSockAddr(&addr);
    EXPECT_EQ(u"127.0.0.1", datagram.GetHost());
    EXPECT_EQ(20000, datagram.GetPort());
    EXPECT_EQ("pSockAddr != NULL", FailedExpression([&] { datagram.SetSockAddr(nullptr); }));
}
