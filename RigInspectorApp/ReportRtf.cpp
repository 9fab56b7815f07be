#include "ReportRtf.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>

#include "ReportHtml.h"

namespace
{
class RtfWriter
{
public:
    RtfReport Convert(const std::vector<HtmlSpan>& spans)
    {
        for (const HtmlSpan& span : spans)
        {
            switch (span.kind)
            {
            case HtmlSpan::Kind::Text:
                for (const char16_t c : span.text)
                    Char(c);
                break;
            case HtmlSpan::Kind::LineBreak:
                Control("\\par");
                ++m_Cp;
                break;
            case HtmlSpan::Kind::Style:
                Emit(span.style);
                break;
            case HtmlSpan::Kind::LinkStart:
                m_LinkStart = m_Cp;
                m_LinkUrl = tstring(span.text.begin(), span.text.end());
                m_bInLink = true;
                break;
            case HtmlSpan::Kind::LinkEnd:
                if (m_bInLink && m_Cp > m_LinkStart)
                    m_Links.push_back(RtfLink{m_LinkStart, m_Cp, std::move(m_LinkUrl)});
                m_bInLink = false;
                break;
            }
        }

        RtfReport report;
        report.rtf = "{\\rtf1\\ansi\\deff0{\\fonttbl{\\f0\\fswiss Arial;}}{\\colortbl ;";
        for (const std::uint32_t rgb : m_Colors)
        {
            char entry[48];
            std::snprintf(entry, sizeof entry, "\\red%u\\green%u\\blue%u;", (rgb >> 16) & 0xffu,
                          (rgb >> 8) & 0xffu, rgb & 0xffu);
            report.rtf += entry;
        }
        report.rtf += "}\\f0\\fs18 ";
        report.rtf += m_Body;
        report.rtf += '}';
        report.links = std::move(m_Links);
        return report;
    }

private:
    void Emit(const HtmlStyle& style)
    {
        Control(style.bBold ? "\\b" : "\\b0");
        Control(("\\cf" + std::to_string(style.colour ? ColorIndex(*style.colour) : 0)).c_str());
        Control(("\\fs" + std::to_string(style.nHalfPoints ? style.nHalfPoints : 18)).c_str());
    }

    int ColorIndex(std::uint32_t rgb)
    {
        const auto it = std::find(m_Colors.begin(), m_Colors.end(), rgb);
        if (it != m_Colors.end())
            return static_cast<int>(it - m_Colors.begin()) + 1;
        m_Colors.push_back(rgb);
        return static_cast<int>(m_Colors.size());
    }

    void Char(char16_t c)
    {
        if (c == u'\r')
            return;
        if (c == u'\n')
        {
            // Kept as a break, as the other front end's view keeps the
            // report's own white space.
            Control("\\par");
        }
        else if (c == u'\t')
        {
            Control("\\tab");
        }
        else if (c == u'\\' || c == u'{' || c == u'}')
        {
            m_Body += '\\';
            m_Body += static_cast<char>(c);
        }
        else if (c >= 0x20 && c < 0x80)
        {
            m_Body += static_cast<char>(c);
        }
        else if (c < 0x20)
        {
            return;
        }
        else
        {
            // RTF's \u takes a signed 16-bit value; the "?" after it, what
            // readers without Unicode show, also ends the control word.
            m_Body += "\\u" + std::to_string(static_cast<std::int16_t>(c)) + "?";
        }
        ++m_Cp;
    }

    void Control(const char* word)
    {
        // The blank ends the control word: a letter or digit after it would
        // extend it.
        m_Body += word;
        m_Body += ' ';
    }

    std::string m_Body;
    std::vector<std::uint32_t> m_Colors;
    std::vector<RtfLink> m_Links;
    long m_Cp = 0;
    long m_LinkStart = 0;
    tstring m_LinkUrl;
    bool m_bInLink = false;
};
} // namespace

RtfReport ReportHtmlToRtf(std::u16string_view html)
{
    return RtfWriter().Convert(ReadReportHtml(html));
}

const RtfLink* FindRtfLink(const RtfReport& report, long cp)
{
    for (const RtfLink& link : report.links)
    {
        if (cp >= link.cpMin && cp < link.cpMax)
            return &link;
    }
    return nullptr;
}
