// The server's allocation-free reply on a datagram past its ping bound (the
// fuzzer's inputs seldom grow that long); on shorter bytes the EchoReply
// fuzzer holds it to the client's parser and formatter.
#include <gtest/gtest.h>

#include "RigInspector/EchoText.h"
#include "tools/rig_test_server/EchoReply.h"

TEST(EchoReply, LongDatagramsAreNoPing)
{
    EchoText::Bytes bytes = EchoText::FormatPing(1, 2);
    bytes.insert(bytes.begin() + 10, kMaxPingBytes, '0'); // "ping 1 0000...2" stays a ping for the client
    std::vector<std::uint8_t> reply(bytes.size());
    EXPECT_EQ(EchoReply(bytes.data(), bytes.size(), PongFault::None, reply.data()), 0u);
}
