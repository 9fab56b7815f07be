#include "share/socket/Socket.h"

#include <gtest/gtest.h>

#include "share/common/StringUtil.h"

TEST(IsPublicAddress, PrivateLoopbackAndEmptyAreNotPublic)
{
    const struct
    {
        const char16_t* address;
        bool bPublic;
    } table[] = {
        {u"", false},
        {u"0.0.0.0", false},
        {u"10.1.2.3", false},
        {u"172.16.0.1", false},
        {u"172.31.255.255", false},
        {u"192.168.0.1", false},
        {u"127.0.0.1", false},
        {u" 10.0.0.1\r\n", false}, // trimmed before it is read
        {u"172.15.0.1", true},
        {u"172.32.0.1", true},
        {u"192.169.0.1", true},
        {u"127.0.0.2", true},
        {u"169.254.1.1", true},
        {u"8.8.8.8", true},
        // Text that is not an address reads as 255.255.255.255.
        {u"not.an.address", true},
        {u"   ", true},
    };
    for (const auto& row : table)
        EXPECT_EQ(row.bPublic, zul::socket::IsPublicAddress(row.address)) << zul::ToMultiByte(row.address);
}
