#include <gtest/gtest.h>

#include <cctype>

#include <string>

#include "RigInspectorApp/InspectorDlg.h"
#include "RigInspectorApp/ReportRtf.h"

namespace
{
// What a RichEdit control shows of the RTF body, read the way RTF readers do:
// a control word is a backslash, letters, an optional signed number and one
// optional blank; \par is a line break, \uN a character followed by its "?".
std::u16string PlainText(const std::string& rtf)
{
    std::u16string text;
    const std::size_t bodyStart = rtf.find("\\fs18 ") + 6;
    for (std::size_t i = bodyStart; i + 1 < rtf.size(); ++i)
    {
        const char c = rtf[i];
        if (c != '\\')
        {
            text += static_cast<char16_t>(static_cast<unsigned char>(c));
            continue;
        }
        if (!std::isalpha(static_cast<unsigned char>(rtf[i + 1])))
        {
            text += static_cast<char16_t>(rtf[++i]);
            continue;
        }
        std::size_t end = i + 1;
        while (std::isalpha(static_cast<unsigned char>(rtf[end])))
            ++end;
        const std::string word = rtf.substr(i + 1, end - i - 1);
        const std::size_t numberStart = end;
        if (rtf[end] == '-')
            ++end;
        while (std::isdigit(static_cast<unsigned char>(rtf[end])))
            ++end;
        const std::string number = rtf.substr(numberStart, end - numberStart);
        if (word == "par")
            text += u'\n';
        else if (word == "tab")
            text += u'\t';
        else if (word == "u")
        {
            text += static_cast<char16_t>(std::stoi(number));
            ++end; // the "?" stand-in
        }
        if (word != "u" && rtf[end] == ' ')
            ++end;
        i = end - 1;
    }
    return text;
}
} // namespace

TEST(ReportRtf, ShowsEveryLineOfTheReportWithItsStylesAndLinks)
{
    const std::u16string html =
        std::u16string(kReportPrefix) + kReportHeader +
        u"<br>Checking OS...<font color=blue>passed.</font>"
        u"<br>\tCPU : 2.4GHz &amp; <b>1</b>2 {x}\\ caf\u00e9 \uc548"
        u"<br><font color=\"#FF0000\">failed, please <a href=\"http://h/?a=1&amp;b=2\" "
        u"target=_blank>click here</a></font>" +
        kReportSuffix;
    const RtfReport report = ReportHtmlToRtf(html);

    EXPECT_EQ(PlainText(report.rtf),
              u"Rig Inspector v1.1\n\nChecking OS...passed.\n\tCPU : 2.4GHz & 12 {x}\\ "
              u"caf\u00e9 \uc548\nfailed, please click here");
    EXPECT_EQ(
        report.rtf.find_first_not_of("\t\n\r !\"#$%&'()*+,-./0123456789:;<=>?@ABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                     "[\\]^_`abcdefghijklmnopqrstuvwxyz{|}~"),
        std::string::npos);
    // Blue and red in the colour table; the header bold; 9 pt from the style.
    EXPECT_NE(report.rtf.find("\\red0\\green0\\blue255;"), std::string::npos);
    EXPECT_NE(report.rtf.find("\\red255\\green0\\blue0;"), std::string::npos);
    EXPECT_NE(report.rtf.find("\\b \\cf0 \\fs18 Rig"), std::string::npos);

    ASSERT_EQ(report.links.size(), 1u);
    const RtfLink& link = report.links[0];
    EXPECT_EQ(
        PlainText(report.rtf)
            .substr(static_cast<std::size_t>(link.cpMin), static_cast<std::size_t>(link.cpMax - link.cpMin)),
        u"click here");
    EXPECT_EQ(link.url, u"http://h/?a=1&b=2");
    EXPECT_EQ(FindRtfLink(report, link.cpMin), &link);
    EXPECT_EQ(FindRtfLink(report, link.cpMax), nullptr);
    EXPECT_EQ(FindRtfLink(report, link.cpMin - 1), nullptr);
}

TEST(ReportRtf, BrokenMarkupNeitherLosesTextNorUnbalancesTheDocument)
{
    // Stray closing tags, an unknown entity, a lone ampersand and a cut-off tag.
    const RtfReport report = ReportHtmlToRtf(u"</font></b>a &bogus; & b<i>c</i><a href=x>d<font");
    EXPECT_EQ(PlainText(report.rtf), u"a &bogus; & bcd");
    EXPECT_TRUE(report.links.empty()); // never closed
    int depth = 0;
    for (std::size_t i = 0; i < report.rtf.size(); ++i)
    {
        if (report.rtf[i] == '\\')
            ++i;
        else
            depth += report.rtf[i] == '{' ? 1 : report.rtf[i] == '}' ? -1 : 0;
        ASSERT_GE(depth, 0);
    }
    EXPECT_EQ(depth, 0);
}
