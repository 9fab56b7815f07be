// The server's allocation-free reply against the shared parser and formatter
// the client uses: on any bytes they must agree.
#include <gtest/gtest.h>
#include <random>

#include "RigInspector/EchoText.h"
#include "tools/rig_test_server/EchoReply.h"

TEST(EchoReply, AgreesWithTheSharedParserOnMutatedPings)
{
    // Characters that matter to the rules, and bytes that make odd lengths
    // and characters outside ASCII.
    const char16_t alphabet[] = u"ping 0123456789+-\t\r\n\v\x00\x3000";
    std::mt19937 random(12345);
    std::vector<std::uint8_t> reply(kMaxPingBytes);
    for (int run = 0; run < 20000; ++run)
    {
        EchoText::Bytes bytes =
            EchoText::FormatPing(static_cast<int>(random() % 2000) - 1000, static_cast<int>(random()));
        for (unsigned edits = random() % 4; edits > 0; --edits)
        {
            const std::size_t at = random() % (bytes.size() / 2 + 1) * 2;
            const char16_t c = alphabet[random() % (sizeof alphabet / 2 - 1)];
            if (random() % 3 == 0 && at < bytes.size())
                bytes.erase(bytes.begin() + static_cast<long>(at), bytes.begin() + static_cast<long>(at) + 2);
            else
                bytes.insert(bytes.begin() + static_cast<long>(at),
                             {static_cast<std::uint8_t>(c), static_cast<std::uint8_t>(c >> 8)});
        }
        if (random() % 5 == 0)
            bytes.push_back('x');
        const auto expected = EchoText::ParsePing(bytes.data(), bytes.size());
        const auto read = ReadPing(bytes.data(), bytes.size());
        ASSERT_EQ(read.has_value(), expected.has_value()) << run;
        if (!read)
            continue;
        ASSERT_EQ(read->m_Seq, expected->m_Seq) << run;
        ASSERT_EQ(read->m_Tick, expected->m_Tick) << run;
        const EchoText::Bytes pong = EchoText::FormatPong(read->m_Seq, read->m_Tick);
        const std::size_t n = WritePong(*read, bytes.data(), bytes.size(), PongFault::None, reply.data());
        ASSERT_EQ(n, pong.size() <= bytes.size() ? pong.size() : 0u) << run;
        ASSERT_TRUE(std::equal(pong.begin(), pong.begin() + static_cast<long>(n), reply.begin())) << run;
    }
}

TEST(EchoReply, LongDatagramsAreNoPing)
{
    EchoText::Bytes bytes = EchoText::FormatPing(1, 2);
    bytes.insert(bytes.begin() + 10, kMaxPingBytes, '0'); // "ping 1 0000...2" stays a ping for the client
    std::vector<std::uint8_t> reply(bytes.size());
    EXPECT_EQ(EchoReply(bytes.data(), bytes.size(), PongFault::None, reply.data()), 0u);
}
