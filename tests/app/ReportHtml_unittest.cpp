// The one reader of the report's HTML that the terminal and the rich-text
// views both render from.
#include <gtest/gtest.h>

#include <cstdio>

#include "RigInspectorApp/ReportHtml.h"

namespace
{
/// The spans as one line of text, so a whole stream compares at once.
std::u16string Describe(const std::vector<HtmlSpan>& spans)
{
    std::u16string out;
    for (const HtmlSpan& span : spans)
    {
        switch (span.kind)
        {
        case HtmlSpan::Kind::Text:
            out.append(u"[").append(span.text).append(u"]");
            break;
        case HtmlSpan::Kind::LineBreak:
            out += u"|";
            break;
        case HtmlSpan::Kind::Style:
            out += span.style.bBold ? u"{b" : u"{";
            if (span.style.colour)
            {
                char hex[8];
                std::snprintf(hex, sizeof hex, "#%06x", static_cast<unsigned>(*span.style.colour));
                out.append(hex, hex + 7);
            }
            if (span.style.nHalfPoints)
                out +=
                    u"@" + std::u16string(1, static_cast<char16_t>(u'0' + span.style.nHalfPoints / 2 % 10));
            out += u"}";
            break;
        case HtmlSpan::Kind::LinkStart:
            out.append(u"<").append(span.text).append(u">");
            break;
        case HtmlSpan::Kind::LinkEnd:
            out += u"</>";
            break;
        }
    }
    return out;
}

TEST(ReportHtml, FragmentsReadAsTheWholeDocumentDoes)
{
    const std::u16string html =
        u"<B><font style=\"font-size:9pt\">Rig</font><br></B>a &amp; b<font color=\"#FF0000\">"
        u"<a href=\"http://h/?a=1&amp;b=2\">x</a></font> 1 < 2 &#x1F600;&bogus;<p>";
    const std::u16string whole = Describe(ReadReportHtml(html));
    EXPECT_EQ(whole,
              u"{b}{b@9}[Rig]{b}|{}[a & b]{#ff0000}<http://h/?a=1&b=2>[x]</>{}[ 1 < 2 \U0001F600&bogus;]|");

    // Every split point, character by character: tags and references held
    // across fragments give the same stream once joined text is merged.
    for (std::size_t cut = 1; cut < html.size(); ++cut)
    {
        ReportHtmlReader reader;
        std::vector<HtmlSpan> spans = reader.Feed(std::u16string_view(html).substr(0, cut));
        for (HtmlSpan& span : reader.Feed(std::u16string_view(html).substr(cut)))
        {
            if (span.kind == HtmlSpan::Kind::Text && !spans.empty() &&
                spans.back().kind == HtmlSpan::Kind::Text)
                spans.back().text += span.text;
            else
                spans.push_back(std::move(span));
        }
        for (HtmlSpan& span : reader.Finish())
            spans.push_back(std::move(span));
        ASSERT_EQ(Describe(spans), whole) << "cut at " << cut;
    }
}

TEST(ReportHtml, BrokenEndsAndStrayTagsAsABrowserShowsThem)
{
    // A cut-off tag shows nothing, a cut-off reference shows as written,
    // stray closing tags never undo the document's own style, and a link
    // never closed is no link.
    EXPECT_EQ(Describe(ReadReportHtml(u"</b></font>a<a href=x>b<font")), u"{}{}[a]<x>[b]");
    EXPECT_EQ(Describe(ReadReportHtml(u"a&am")), u"[a&am]");
    EXPECT_EQ(Describe(ReadReportHtml(u"&#0;&#xD800;&#99999999;")), u"[\uFFFD\uFFFD\uFFFD]");
}
} // namespace
