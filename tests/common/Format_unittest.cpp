#include "Format.h"

#include <gtest/gtest.h>

#include <type_traits>

#include "Assert.h"
#include "AssertionTestUtil.h"

using zul::FormatString;

// Types with no Windows wide printf meaning here are refused at compile time.
static_assert(!std::is_constructible_v<zul::FormatArg, long long>);
static_assert(!std::is_constructible_v<zul::FormatArg, unsigned long>);
static_assert(!std::is_constructible_v<zul::FormatArg, const char*>);

TEST(Format, ConversionsWithTheWindowsMeaning)
{
    EXPECT_EQ(FormatString(u"<font color=%s>%s</font>", u"red", tstring(u"fail")),
              u"<font color=red>fail</font>");
    EXPECT_EQ(FormatString(u"%d|%3d|%3d|%06d|%06d", -42, 7, 1234, 42, -42), u"-42|  7|1234|000042|-00042");
    EXPECT_EQ(FormatString(u"%.1f|%5.2f|%.0f|%.0f|%.0f", 3.14159, 3.14159, 2.5, 3.5, 1e6),
              u"3.1| 3.14|2|4|1000000");
    EXPECT_EQ(FormatString(u"100%% %d%%", 5), u"100% 5%");
    EXPECT_EQ(FormatString(u"%08lx|%lx|%X|%o|%u", 0x1234u, 0xDEADBEEFu, 255, 8, 7u),
              u"00001234|deadbeef|FF|10|7");
    EXPECT_EQ(FormatString(u"[%-4s][%4s][%.2s][%c][%-3d]", u"ab", u"ab", u"abc", u'\u00e9', 5),
              u"[ab  ][  ab][ab][é][5  ]");
    EXPECT_EQ(FormatString(u"[%*d][%-*d][%.*f]", 4, 1, 3, 2, 2, 0.125), u"[   1][2  ][0.12]");
    EXPECT_EQ(FormatString(u"%e|%g|%+d|% d", 1234.5, 0.0001, 3, 3), u"1.234500e+03|0.0001|+3| 3");
    EXPECT_EQ(FormatString(u"%s", static_cast<const char16_t*>(nullptr)), u"(null)");

    // Integers are 32 bits, and unsigned values under %d are their bits read as signed.
    EXPECT_EQ(FormatString(u"%d|%d", 4294967295u, 2147483648u), u"-1|-2147483648");
    EXPECT_EQ(FormatString(u"%d|%d", static_cast<unsigned short>(65535), static_cast<short>(-1)),
              u"65535|-1");
    EXPECT_EQ(FormatString(u"%ld|%lx|%hd|%hu|%u", -1, -1, 70000, -1, -1),
              u"-1|ffffffff|4464|65535|4294967295");
}

TEST(Format, FloatingDigitsUseStandardRounding)
{
    // The clock check multiplies MHz by a float factor: 1950 * 0.001f is a
    // little above 1.95 and shows 2.0, while the double nearest 1.95 is below
    // it and shows 1.9. A home-made round-half-up would show 2.0 for both.
    EXPECT_EQ(FormatString(u"%.1f|%.1f|%.2f|%.0f", 1950 * 0.001f, 1.95, 2.675, 0.5), u"2.0|1.9|2.67|0");
}

TEST(Format, OutputIsCutAtTheLimit)
{
    const tstring long1030(1030, u'a');
    const tstring exact1024(1024, u'b');
    EXPECT_EQ(FormatString(u"%s", long1030), long1030.substr(0, 1024));
    EXPECT_EQ(FormatString(u"%s", exact1024), exact1024);
    EXPECT_EQ(FormatString(long1030.c_str()), long1030.substr(0, 1024));
    EXPECT_EQ(FormatString(u"%s%06d", tstring(1020, u'c'), 42), tstring(1020, u'c') + u"0000");
    EXPECT_EQ(FormatString(u"%*d", 100000, 1), tstring(1024, u' '));

    // The report's 512-character buffer holds 511 characters and the zero.
    const tstring six(600, u'x');
    EXPECT_EQ(zul::FormatStringN(511, u"%s", six).size(), 511u);
    EXPECT_EQ(zul::FormatStringN(512, u"%s", six).size(), 512u);
    EXPECT_EQ(zul::FormatStringN(0, u"%d", 5), u"");
}

TEST(Format, MismatchedOrMissingArgumentsAreAssertionFailures)
{
    TempWorkingDirectory directory;
    EXPECT_THROW(FormatString(u"%d", u"text"), zul::AssertionFailure);
    EXPECT_THROW(FormatString(u"%s", 5), zul::AssertionFailure);
    EXPECT_THROW(FormatString(u"%f", 5), zul::AssertionFailure);
    EXPECT_THROW(FormatString(u"%d", 1.5), zul::AssertionFailure);
    EXPECT_THROW(FormatString(u"%d %d", 1), zul::AssertionFailure);
    EXPECT_THROW(FormatString(u"%*d", 1), zul::AssertionFailure);
    EXPECT_THROW(FormatString(u"50%"), zul::AssertionFailure);
    EXPECT_THROW(FormatString(u"%q", 1), zul::AssertionFailure);
    // Found even where the output is already full.
    EXPECT_THROW(FormatString(u"%s%d", tstring(2000, u'a')), zul::AssertionFailure);
}
