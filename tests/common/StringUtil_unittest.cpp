#include "StringUtil.h"

#include <gtest/gtest.h>

#include <climits>
#include <tuple>

using zul::StringBuffer;

TEST(StringUtil, TokenizeBoundaries)
{
    const tstring blanks = u" \t\r\n";
    using Fields = std::vector<tstring>;
    EXPECT_EQ(zul::Tokenize(u"pong 3 1234", blanks), (Fields{u"pong", u"3", u"1234"}));
    EXPECT_EQ(zul::Tokenize(u"", blanks), (Fields{u""}));
    EXPECT_EQ(zul::Tokenize(u"\ta\r\nb ", blanks), (Fields{u"", u"a", u"", u"b", u""}));
    // The delimiter set ends at its first zero.
    EXPECT_EQ(zul::Tokenize(u"a,b;c", tstring(u",\0;", 3)), (Fields{u"a", u"b;c"}));
}

TEST(StringUtil, NarrowTextIsTrimmedUtf8)
{
    EXPECT_EQ(zul::ToMultiByte(u" 192.168.0.1\r\n"), "192.168.0.1");
    EXPECT_EQ(zul::ToMultiByte(u"abc def", 3), "abc");
    EXPECT_EQ(zul::ToMultiByte(u"Grüße €日本 😀"), "Gr\xC3\xBC\xC3\x9F"
                                                  "e \xE2\x82\xAC\xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x98\x80");
    // A text of only 3-byte units is three times as long in bytes.
    EXPECT_EQ(zul::ToMultiByte(tstring(1000, u'\u20ac')).size(), 3000u);
    // Unpaired surrogates, also a pair cut by the length, become U+FFFD.
    const tstring lone{u'a', char16_t(0xD83D), u'b', char16_t(0xDE00), char16_t(0xD800)};
    EXPECT_EQ(zul::ToMultiByte(lone), "a\xEF\xBF\xBD"
                                      "b\xEF\xBF\xBD\xEF\xBF\xBD");
    EXPECT_EQ(zul::ToMultiByte(u"😀", 1), "\xEF\xBF\xBD");
}

TEST(StringUtil, WideTextKeepsBlanksAndMarksEachMaximalInvalidSubpart)
{
    EXPECT_EQ(zul::ToWide(std::string(" 10.0.0.1 \r\n")), u" 10.0.0.1 \r\n");
    EXPECT_EQ(zul::ToWide("abc", 2), u"ab");
    const tstring text = u"Grüße €日本 😀";
    EXPECT_EQ(zul::ToWide(zul::ToMultiByte(text)), text);

    const struct
    {
        std::string bytes;
        tstring wide;
    } cases[] = {
        {"a\xC3", u"a\uFFFD"},                             // cut short at the end
        {"a\xE2\x82z", u"a\uFFFDz"},                       // cut short before good text
        {"\xC0\xAF", u"\uFFFD\uFFFD"},                     // overlong
        {"\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD"},           // an encoded surrogate
        {"\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD"}, // beyond U+10FFFF
        {"\x80x\xFF", u"\uFFFDx\uFFFD"},                   // stray continuation, invalid byte
    };
    for (const auto& c : cases)
        EXPECT_EQ(zul::ToWide(c.bytes), c.wide) << c.bytes;
}

// Library helpers the tool itself does not call: their boundaries only.
TEST(StringUtil, TrimAndBufferBoundaries)
{
    EXPECT_EQ(zul::Trim(" \t\r\n"), "");
    EXPECT_EQ(zul::Trim("\va b\t\r\n"), "\va b"); // vertical tab is not one of the blanks

    const tstring start(120, u'a');
    StringBuffer fixed(false);
    fixed.Append(start.c_str()) << u"0123456789" << u"more";
    EXPECT_EQ(tstring(fixed.GetBuffer()), start + u"01234567");
    // A growable buffer doubles the larger of its capacity and the new text.
    for (const auto& [first, second, capacity] : {std::tuple{128, 0, 128}, {120, 20, 256}, {0, 200, 400}})
    {
        StringBuffer grown(true);
        grown << tstring(first, u'b').c_str() << tstring(second, u'c').c_str();
        EXPECT_EQ(grown.GetCapacity(), capacity) << first << '+' << second;
        EXPECT_EQ(tstring(grown.GetBuffer()), tstring(first, u'b') + tstring(second, u'c'));
    }
    const tstring longText(70000, u'z');
    EXPECT_EQ(ToTString(longText.c_str()), longText);
}

TEST(StringUtil, WideCStringCompareAndWtoi)
{
    EXPECT_LT(zul::WcsCmp(u"ab", u"abc"), 0);
    EXPECT_GT(zul::WcsCmp(u"\uFFFF", u"a"), 0); // code units compare unsigned

    const struct
    {
        const char16_t* text;
        int value;
    } cases[] = {
        {u" \t\n\v\f\r-17x", -17},
        {u"+5", 5},
        {u"abc", 0},
        {u"- 5", 0},
        {u"2147483647", INT_MAX},
        {u"2147483648", INT_MAX},
        {u"-2147483648", INT_MIN},
        {u"-2147483649", INT_MIN},
        {u"99999999999999999999999", INT_MAX},
        {u"-99999999999999999999999", INT_MIN},
    };
    for (const auto& c : cases)
        EXPECT_EQ(zul::Wtoi(c.text), c.value) << zul::ToMultiByte(c.text);
    EXPECT_EQ(zul::Wtoi(std::u16string_view(u"123", 2)), 12);
}
