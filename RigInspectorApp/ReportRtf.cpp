#include "ReportRtf.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>

namespace
{
struct TextStyle
{
    bool bBold = false;
    int nColor = 0;      // index into the colour table, 0 = the default
    int nHalfPoints = 0; // 0 = the document's size
};

struct NamedColor
{
    std::u16string_view name;
    std::uint32_t rgb;
};

// The colours HTML 4 names; the report uses red and blue.
constexpr NamedColor kNamedColors[] = {
    {u"black", 0x000000},  {u"silver", 0xc0c0c0}, {u"gray", 0x808080},   {u"white", 0xffffff},
    {u"maroon", 0x800000}, {u"red", 0xff0000},    {u"purple", 0x800080}, {u"fuchsia", 0xff00ff},
    {u"green", 0x008000},  {u"lime", 0x00ff00},   {u"olive", 0x808000},  {u"yellow", 0xffff00},
    {u"navy", 0x000080},   {u"blue", 0x0000ff},   {u"teal", 0x008080},   {u"aqua", 0x00ffff},
};

char16_t Lower(char16_t c)
{
    return c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c - u'A' + u'a') : c;
}

std::u16string ToLower(std::u16string_view text)
{
    std::u16string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), Lower);
    return lower;
}

bool ParseColor(std::u16string_view value, std::uint32_t& rgb)
{
    const std::u16string lower = ToLower(value);
    for (const NamedColor& named : kNamedColors)
    {
        if (lower == named.name)
        {
            rgb = named.rgb;
            return true;
        }
    }
    std::u16string_view hex(lower);
    if (!hex.empty() && hex.front() == u'#')
        hex.remove_prefix(1);
    if (hex.size() != 6)
        return false;
    rgb = 0;
    for (const char16_t c : hex)
    {
        int digit = 0;
        if (c >= u'0' && c <= u'9')
            digit = c - u'0';
        else if (c >= u'a' && c <= u'f')
            digit = c - u'a' + 10;
        else
            return false;
        rgb = rgb << 4 | static_cast<std::uint32_t>(digit);
    }
    return true;
}

/// The value of an attribute in a tag's text (after its name): quoted or bare.
bool FindAttribute(std::u16string_view tag, std::u16string_view name, std::u16string& value)
{
    const std::u16string lower = ToLower(tag);
    std::size_t pos = 0;
    while ((pos = lower.find(name, pos)) != std::u16string::npos)
    {
        const bool bStartsWord = pos == 0 || lower[pos - 1] == u' ' || lower[pos - 1] == u'\t';
        std::size_t i = pos + name.size();
        while (i < lower.size() && lower[i] == u' ')
            ++i;
        if (!bStartsWord || i >= lower.size() || lower[i] != u'=')
        {
            pos += name.size();
            continue;
        }
        ++i;
        while (i < lower.size() && lower[i] == u' ')
            ++i;
        if (i < tag.size() && (tag[i] == u'"' || tag[i] == u'\''))
        {
            const std::size_t end = tag.find(tag[i], i + 1);
            value =
                tag.substr(i + 1, end == std::u16string_view::npos ? std::u16string_view::npos : end - i - 1);
        }
        else
        {
            std::size_t end = i;
            while (end < tag.size() && tag[end] != u' ' && tag[end] != u'\t')
                ++end;
            value = tag.substr(i, end - i);
        }
        return true;
    }
    return false;
}

/// "font-size:9pt" in a style attribute, as RTF half-points.
int FontSizeFromStyle(std::u16string_view style)
{
    const std::u16string lower = ToLower(style);
    const std::size_t pos = lower.find(u"font-size:");
    if (pos == std::u16string::npos)
        return 0;
    std::size_t i = pos + 10;
    while (i < lower.size() && lower[i] == u' ')
        ++i;
    int points = 0;
    while (i < lower.size() && lower[i] >= u'0' && lower[i] <= u'9' && points < 1000)
        points = points * 10 + (lower[i++] - u'0');
    return lower.compare(i, 2, u"pt") == 0 ? points * 2 : 0;
}

class RtfWriter
{
public:
    explicit RtfWriter(std::u16string_view html) : m_Html(html) {}

    RtfReport Convert()
    {
        m_Styles.push_back(TextStyle{});
        std::size_t i = 0;
        while (i < m_Html.size())
        {
            const char16_t c = m_Html[i];
            if (c == u'<')
            {
                const std::size_t end = m_Html.find(u'>', i);
                if (end == std::u16string_view::npos)
                    break; // a cut-off tag shows nothing, as in a browser
                Tag(m_Html.substr(i + 1, end - i - 1));
                i = end + 1;
            }
            else if (c == u'&')
            {
                i = Reference(i);
            }
            else
            {
                Char(c);
                ++i;
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
    void Tag(std::u16string_view tag)
    {
        const bool bClosing = !tag.empty() && tag.front() == u'/';
        if (bClosing)
            tag.remove_prefix(1);
        std::size_t nameEnd = 0;
        while (nameEnd < tag.size() && tag[nameEnd] != u' ' && tag[nameEnd] != u'\t' && tag[nameEnd] != u'/')
            ++nameEnd;
        const std::u16string name = ToLower(tag.substr(0, nameEnd));
        const std::u16string_view attributes = tag.substr(nameEnd);

        if (name == u"br" && !bClosing)
        {
            Control("\\par");
            ++m_Cp;
        }
        else if (name == u"b" || name == u"strong")
        {
            if (bClosing)
                Pop();
            else
                Push([](TextStyle& s, std::u16string_view) { s.bBold = true; }, attributes);
        }
        else if (name == u"font")
        {
            if (bClosing)
                Pop();
            else
                Push(
                    [this](TextStyle& s, std::u16string_view attrs)
                    {
                        std::u16string value;
                        std::uint32_t rgb = 0;
                        if (FindAttribute(attrs, u"color", value) && ParseColor(value, rgb))
                            s.nColor = ColorIndex(rgb);
                        if (FindAttribute(attrs, u"style", value))
                        {
                            if (const int nHalfPoints = FontSizeFromStyle(value))
                                s.nHalfPoints = nHalfPoints;
                        }
                    },
                    attributes);
        }
        else if (name == u"a")
        {
            std::u16string url;
            if (!bClosing && FindAttribute(attributes, u"href", url))
            {
                m_LinkStart = m_Cp;
                m_LinkUrl = DecodeReferences(url);
                m_bInLink = true;
            }
            else if (bClosing && m_bInLink)
            {
                m_bInLink = false;
                if (m_Cp > m_LinkStart)
                    m_Links.push_back(RtfLink{m_LinkStart, m_Cp, std::move(m_LinkUrl)});
            }
        }
    }

    template <class Apply> void Push(Apply apply, std::u16string_view attributes)
    {
        TextStyle style = m_Styles.back();
        apply(style, attributes);
        m_Styles.push_back(style);
        Emit(style);
    }

    void Pop()
    {
        // Stray closing tags of a broken fragment must not pop the document's
        // own style.
        if (m_Styles.size() > 1)
            m_Styles.pop_back();
        Emit(m_Styles.back());
    }

    void Emit(const TextStyle& style)
    {
        Control(style.bBold ? "\\b" : "\\b0");
        Control(("\\cf" + std::to_string(style.nColor)).c_str());
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

    std::size_t Reference(std::size_t i)
    {
        const std::size_t end = m_Html.find(u';', i);
        if (end == std::u16string_view::npos || end - i > 10)
        {
            Char(u'&');
            return i + 1;
        }
        const std::u16string decoded = DecodeReferences(m_Html.substr(i, end - i + 1));
        for (const char16_t c : decoded)
            Char(c);
        return end + 1;
    }

    static std::u16string DecodeReferences(std::u16string_view text)
    {
        static constexpr struct
        {
            std::u16string_view name;
            char16_t c;
        } kEntities[] = {{u"amp", u'&'},  {u"lt", u'<'},    {u"gt", u'>'},
                         {u"quot", u'"'}, {u"apos", u'\''}, {u"nbsp", u'\u00a0'}};
        std::u16string out;
        std::size_t i = 0;
        while (i < text.size())
        {
            const std::size_t end = text[i] == u'&' ? text.find(u';', i) : std::u16string_view::npos;
            if (end == std::u16string_view::npos)
            {
                out += text[i++];
                continue;
            }
            const std::u16string name = ToLower(text.substr(i + 1, end - i - 1));
            bool bKnown = false;
            if (name.size() > 1 && name[0] == u'#')
            {
                const bool bHex = name[1] == u'x';
                unsigned long code = 0;
                bool bDigits = name.size() > (bHex ? 2u : 1u);
                for (std::size_t k = bHex ? 2 : 1; k < name.size() && bDigits; ++k)
                {
                    const char16_t d = name[k];
                    const int v = d >= u'0' && d <= u'9'           ? d - u'0'
                                  : bHex && d >= u'a' && d <= u'f' ? d - u'a' + 10
                                                                   : -1;
                    bDigits = v >= 0 && code < 0x10000;
                    code = code * (bHex ? 16 : 10) + static_cast<unsigned long>(v);
                }
                if (bDigits && code > 0 && code < 0x10000)
                {
                    out += static_cast<char16_t>(code);
                    bKnown = true;
                }
            }
            for (const auto& entity : kEntities)
            {
                if (!bKnown && name == entity.name)
                {
                    out += entity.c;
                    bKnown = true;
                }
            }
            if (bKnown)
                i = end + 1;
            else
                out += text[i++];
        }
        return out;
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

    std::u16string_view m_Html;
    std::string m_Body;
    std::vector<TextStyle> m_Styles;
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
    return RtfWriter(html).Convert();
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
