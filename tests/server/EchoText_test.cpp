// The pong parse rules the checker and the server share.
#include <climits>
#include <gtest/gtest.h>
#include <optional>

#include "RigInspector/EchoText.h"

namespace
{
std::optional<EchoText::Fields> ParsePong(const std::u16string& text)
{
    const EchoText::Bytes bytes = EchoText::ToBytes(text);
    return EchoText::ParsePong(bytes.data(), bytes.size());
}

struct ParseCase
{
    const char16_t* m_Text;
    bool m_bAccepted;
    int m_Seq;
    int m_Tick;
};
} // namespace

TEST(EchoText, PongParseRules)
{
    const ParseCase cases[] = {
        {u"pong 3 1234567", true, 3, 1234567},
        {u"pong\t3\n5", true, 3, 5},
        {u"pong 3 5\r\n", false, 0, 0}, // five fields
        {u"pong  3 5", false, 0, 0},    // two blanks: four fields
        {u" pong 3 5", false, 0, 0},
        {u"pong 3", false, 0, 0},
        {u"", false, 0, 0},
        {u"ping 3 5", false, 0, 0},
        {u"Pong 3 5", false, 0, 0},
        {u"pong \v7 3x", true, 7, 3}, // numbers read as _wtoi reads them; its own rules are tested with it
    };
    for (const auto& c : cases)
    {
        const auto fields = ParsePong(c.m_Text);
        ASSERT_EQ(fields.has_value(), c.m_bAccepted)
            << std::string(c.m_Text, c.m_Text + std::char_traits<char16_t>::length(c.m_Text));
        if (fields)
        {
            EXPECT_EQ(fields->m_Seq, c.m_Seq);
            EXPECT_EQ(fields->m_Tick, c.m_Tick);
        }
    }
}

TEST(EchoText, FormatsWithoutTerminatorAndDropsAnOddLastByte)
{
    const EchoText::Bytes ping = EchoText::FormatPing(3, 1234567);
    EXPECT_EQ(ping.size(), 28u);
    EXPECT_EQ(EchoText::FromBytes(ping.data(), ping.size()), u"ping 3 1234567");
    const EchoText::Bytes pong = EchoText::FormatPong(-1, INT_MIN);
    EXPECT_EQ(EchoText::FromBytes(pong.data(), pong.size()), u"pong -1 -2147483648");
    EchoText::Bytes odd = EchoText::FormatPong(2, 40);
    odd.push_back('\n');
    const auto fields = EchoText::ParsePong(odd.data(), odd.size());
    ASSERT_TRUE(fields);
    EXPECT_EQ(fields->m_Tick, 40);
    EXPECT_FALSE(EchoText::ParsePong(odd.data(), 1));
    EXPECT_FALSE(EchoText::ParsePong(EchoText::FormatPing(3, 5).data(), 16)) << "a ping is no pong";
}
