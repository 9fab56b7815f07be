#include "ReportText.h"

#include <algorithm>

#include "share/common/StringUtil.h"

namespace
{
std::string AnsiFor(const std::optional<std::uint32_t>& colour)
{
    // Black and the rest are drawn in the terminal's own foreground: black on
    // a dark terminal would hide the text.
    if (colour == 0xff0000u)
        return "\x1b[31m";
    if (colour == 0x0000ffu)
        return "\x1b[34m";
    if (colour == 0x008000u)
        return "\x1b[32m";
    return "\x1b[39m";
}
} // namespace

std::string ReportText::Feed(std::u16string_view html)
{
    m_out.clear();
    Render(m_Reader.Feed(html));
    return std::move(m_out);
}

std::string ReportText::Finish()
{
    m_out.clear();
    Render(m_Reader.Finish());
    if (m_bColor && m_bStyled)
        m_out += "\x1b[0m";
    m_bStyled = false;
    m_bBold = false;
    m_appliedColour = AnsiFor(std::nullopt);
    if (m_bLineOpen)
        m_out += '\n';
    m_bLineOpen = false;
    return std::move(m_out);
}

void ReportText::Render(const std::vector<HtmlSpan>& spans)
{
    for (const HtmlSpan& span : spans)
    {
        switch (span.kind)
        {
        case HtmlSpan::Kind::Text:
        {
            std::u16string plain(span.text);
            // As in the browser, line ends and tabs inside the text are blanks.
            std::replace_if(
                plain.begin(), plain.end(),
                [](char16_t ch) { return ch == u'\r' || ch == u'\n' || ch == u'\t' || ch == u'\u00a0'; },
                u' ');
            Emit(zul::Utf16ToUtf8(plain));
            break;
        }
        case HtmlSpan::Kind::LineBreak:
            m_out += '\n';
            m_bLineOpen = false;
            break;
        case HtmlSpan::Kind::Style:
            ApplyStyle(span.style);
            break;
        case HtmlSpan::Kind::LinkStart:
            m_bInLink = true;
            m_linkHref = zul::Utf16ToUtf8(span.text);
            m_linkText.clear();
            break;
        case HtmlSpan::Kind::LinkEnd:
            m_bInLink = false;
            // The address is what a terminal reader needs; "click here" alone
            // leads nowhere.
            if (!m_linkHref.empty() && m_linkText != m_linkHref)
                Emit(" (" + m_linkHref + ")");
            break;
        }
    }
}

void ReportText::Emit(std::string_view text)
{
    if (text.empty())
        return;
    if (m_bInLink)
        m_linkText += text;
    m_out += text;
    m_bLineOpen = true;
}

void ReportText::ApplyStyle(const HtmlStyle& style)
{
    m_bStyled = style.bBold || style.colour || style.nHalfPoints != 0;
    if (!m_bColor)
        return;
    if (style.bBold != m_bBold)
        m_out += style.bBold ? "\x1b[1m" : "\x1b[22m";
    m_bBold = style.bBold;
    const std::string code = AnsiFor(style.colour);
    if (code != m_appliedColour)
        m_out += code;
    m_appliedColour = code;
}
