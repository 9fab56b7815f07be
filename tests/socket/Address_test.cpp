#include "share/socket/Socket.h"

#include <gtest/gtest.h>

#include "share/common/StringUtil.h"

TEST(IsPublicAddress, PrivateLoopbackAndEmptyAreNotPublic)
{
    // Blanks are trimmed before the address is read.
    for (const char16_t* address : {u"", u"0.0.0.0", u"10.1.2.3", u"172.16.0.1", u"172.31.255.255",
                                    u"192.168.0.1", u"127.0.0.1", u" 10.0.0.1\r\n"})
        EXPECT_FALSE(zul::socket::IsPublicAddress(address)) << zul::ToMultiByte(address);
    // Text that is not an address reads as 255.255.255.255.
    for (const char16_t* address : {u"172.15.0.1", u"172.32.0.1", u"192.169.0.1", u"127.0.0.2",
                                    u"169.254.1.1", u"8.8.8.8", u"not.an.address", u"   "})
        EXPECT_TRUE(zul::socket::IsPublicAddress(address)) << zul::ToMultiByte(address);
}
