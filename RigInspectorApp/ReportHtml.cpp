#include "ReportHtml.h"

#include <algorithm>
#include <utility>

namespace
{
constexpr std::size_t kMaxReference = 12; // '&', up to ten characters, ';'

struct NamedColour
{
    std::u16string_view name;
    std::uint32_t rgb;
};

// The colours HTML 4 names; the report uses red and blue.
constexpr NamedColour kNamedColours[] = {
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

bool IsBlank(char16_t c)
{
    return c == u' ' || c == u'\t' || c == u'\r' || c == u'\n';
}

bool IsAsciiLetter(char16_t c)
{
    return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z');
}

bool IsAsciiAlnum(char16_t c)
{
    return IsAsciiLetter(c) || (c >= u'0' && c <= u'9');
}

std::optional<std::uint32_t> ParseColour(std::u16string_view value)
{
    const std::u16string lower = ToLower(value);
    for (const NamedColour& named : kNamedColours)
    {
        if (lower == named.name)
            return named.rgb;
    }
    std::u16string_view hex(lower);
    if (!hex.empty() && hex.front() == u'#')
        hex.remove_prefix(1);
    if (hex.size() != 6)
        return std::nullopt;
    std::uint32_t rgb = 0;
    for (const char16_t c : hex)
    {
        int digit = 0;
        if (c >= u'0' && c <= u'9')
            digit = c - u'0';
        else if (c >= u'a' && c <= u'f')
            digit = c - u'a' + 10;
        else
            return std::nullopt;
        rgb = rgb << 4 | static_cast<std::uint32_t>(digit);
    }
    return rgb;
}

/// The value of an attribute in a tag's text after its name: quoted or bare.
std::optional<std::u16string> FindAttribute(std::u16string_view tag, std::u16string_view name)
{
    const std::u16string lower = ToLower(tag);
    std::size_t pos = 0;
    while ((pos = lower.find(name, pos)) != std::u16string::npos)
    {
        const bool bStartsWord = pos == 0 || IsBlank(lower[pos - 1]);
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
            return std::u16string(tag.substr(
                i + 1, end == std::u16string_view::npos ? std::u16string_view::npos : end - i - 1));
        }
        std::size_t end = i;
        while (end < tag.size() && !IsBlank(tag[end]) && tag[end] != u'/')
            ++end;
        return std::u16string(tag.substr(i, end - i));
    }
    return std::nullopt;
}

/// "font-size:9pt" in a style attribute, as half-points; 0 when absent.
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

void AppendCodePoint(std::u16string& out, std::uint32_t code)
{
    if (code >= 0x10000)
    {
        out += static_cast<char16_t>(0xD800 + ((code - 0x10000) >> 10));
        out += static_cast<char16_t>(0xDC00 + ((code - 0x10000) & 0x3FF));
    }
    else
    {
        out += static_cast<char16_t>(code);
    }
}

/// The character a reference's name (between '&' and ';') stands for, or
/// nothing when it names none.
std::optional<std::u16string> DecodeReference(std::u16string_view name)
{
    static constexpr struct
    {
        std::u16string_view name;
        char16_t c;
    } kEntities[] = {{u"amp", u'&'},  {u"lt", u'<'},    {u"gt", u'>'},
                     {u"quot", u'"'}, {u"apos", u'\''}, {u"nbsp", u'\u00a0'}};
    for (const auto& entity : kEntities)
    {
        if (name == entity.name)
            return std::u16string(1, entity.c);
    }
    if (name.size() < 2 || name[0] != u'#')
        return std::nullopt;
    const bool bHex = name[1] == u'x' || name[1] == u'X';
    std::uint32_t code = 0;
    bool bValid = name.size() > (bHex ? 2u : 1u);
    for (std::size_t k = bHex ? 2 : 1; k < name.size() && bValid; ++k)
    {
        const char16_t d = Lower(name[k]);
        const int v = d >= u'0' && d <= u'9' ? d - u'0' : bHex && d >= u'a' && d <= u'f' ? d - u'a' + 10 : -1;
        bValid = v >= 0 && code <= 0x10FFFF;
        code = code * (bHex ? 16 : 10) + static_cast<std::uint32_t>(v);
    }
    if (!bValid || code > 0x10FFFF || code == 0 || (code >= 0xD800 && code < 0xE000))
        code = 0xFFFD;
    std::u16string out;
    AppendCodePoint(out, code);
    return out;
}

/// References inside an attribute's value, decoded; others kept as written.
std::u16string DecodeReferences(std::u16string_view text)
{
    std::u16string out;
    std::size_t i = 0;
    while (i < text.size())
    {
        const std::size_t end = text[i] == u'&' ? text.find(u';', i) : std::u16string_view::npos;
        const auto decoded = end != std::u16string_view::npos && end - i < kMaxReference
                                 ? DecodeReference(text.substr(i + 1, end - i - 1))
                                 : std::nullopt;
        if (!decoded)
        {
            out += text[i++];
            continue;
        }
        out += *decoded;
        i = end + 1;
    }
    return out;
}
} // namespace

std::vector<HtmlSpan> ReportHtmlReader::Feed(std::u16string_view html)
{
    std::u16string input = std::exchange(m_Pending, {});
    input.append(html);
    const std::u16string_view in(input);

    std::size_t i = 0;
    while (i < in.size())
    {
        const char16_t c = in[i];
        if (c == u'&')
        {
            // A reference is '&', letters, digits or '#', then ';'.
            std::size_t k = i + 1;
            while (k < in.size() && k - i < kMaxReference && (in[k] == u'#' || IsAsciiAlnum(in[k])))
                ++k;
            if (k == in.size() && k - i < kMaxReference)
            {
                m_Pending = in.substr(i);
                break;
            }
            if (in[k] == u';' && k > i + 1)
            {
                Reference(in.substr(i + 1, k - i - 1));
                i = k + 1;
            }
            else
            {
                Text(u"&");
                ++i;
            }
            continue;
        }
        if (c == u'<')
        {
            // As in a browser, '<' that starts no tag is text.
            const bool bTagStart =
                i + 1 >= in.size() || in[i + 1] == u'/' || in[i + 1] == u'!' || IsAsciiLetter(in[i + 1]);
            if (!bTagStart)
            {
                Text(u"<");
                ++i;
                continue;
            }
            const std::size_t end = in.find(u'>', i + 1);
            if (end == std::u16string_view::npos)
            {
                m_Pending = in.substr(i);
                break;
            }
            Tag(in.substr(i + 1, end - i - 1));
            i = end + 1;
            continue;
        }
        std::size_t next = i;
        while (next < in.size() && in[next] != u'<' && in[next] != u'&')
            ++next;
        Text(in.substr(i, next - i));
        i = next;
    }
    return std::exchange(m_Out, {});
}

std::vector<HtmlSpan> ReportHtmlReader::Finish()
{
    if (!m_Pending.empty() && m_Pending.front() == u'&')
        Text(m_Pending);
    m_Pending.clear();
    return std::exchange(m_Out, {});
}

void ReportHtmlReader::Text(std::u16string_view text)
{
    if (text.empty())
        return;
    if (!m_Out.empty() && m_Out.back().kind == HtmlSpan::Kind::Text)
    {
        m_Out.back().text.append(text);
        return;
    }
    HtmlSpan span;
    span.text = text;
    m_Out.push_back(std::move(span));
}

void ReportHtmlReader::Reference(std::u16string_view name)
{
    const auto decoded = DecodeReference(name);
    if (decoded)
        Text(*decoded);
    else
        Text(u"&" + std::u16string(name) + u";"); // unknown: shown as written
}

void ReportHtmlReader::StyleChanged()
{
    HtmlSpan span;
    span.kind = HtmlSpan::Kind::Style;
    span.style.bBold = m_Bold > 0;
    for (auto it = m_Fonts.rbegin(); it != m_Fonts.rend(); ++it)
    {
        if (!span.style.colour && it->colour)
            span.style.colour = it->colour;
        if (!span.style.nHalfPoints && it->nHalfPoints)
            span.style.nHalfPoints = it->nHalfPoints;
    }
    m_Out.push_back(std::move(span));
}

void ReportHtmlReader::Tag(std::u16string_view tag)
{
    const bool bClosing = !tag.empty() && tag.front() == u'/';
    if (bClosing)
        tag.remove_prefix(1);
    std::size_t nameEnd = 0;
    while (nameEnd < tag.size() && !IsBlank(tag[nameEnd]) && tag[nameEnd] != u'/')
        ++nameEnd;
    const std::u16string name = ToLower(tag.substr(0, nameEnd));
    const std::u16string_view attributes = tag.substr(nameEnd);

    if ((name == u"br" || name == u"p") && !bClosing)
    {
        HtmlSpan span;
        span.kind = HtmlSpan::Kind::LineBreak;
        m_Out.push_back(std::move(span));
    }
    else if (name == u"b" || name == u"strong")
    {
        // Stray closing tags of a broken fragment must not undo the
        // document's own style.
        m_Bold = std::max(0, m_Bold + (bClosing ? -1 : 1));
        StyleChanged();
    }
    else if (name == u"font")
    {
        if (!bClosing)
        {
            Font font;
            if (const auto colour = FindAttribute(attributes, u"color"))
                font.colour = ParseColour(*colour);
            if (const auto style = FindAttribute(attributes, u"style"))
                font.nHalfPoints = FontSizeFromStyle(*style);
            m_Fonts.push_back(font);
        }
        else if (!m_Fonts.empty())
        {
            m_Fonts.pop_back();
        }
        StyleChanged();
    }
    else if (name == u"a")
    {
        if (!bClosing)
        {
            const auto href = FindAttribute(attributes, u"href");
            if (!href)
                return;
            m_bInLink = true;
            HtmlSpan span;
            span.kind = HtmlSpan::Kind::LinkStart;
            span.text = DecodeReferences(*href);
            m_Out.push_back(std::move(span));
        }
        else if (m_bInLink)
        {
            m_bInLink = false;
            HtmlSpan span;
            span.kind = HtmlSpan::Kind::LinkEnd;
            m_Out.push_back(std::move(span));
        }
    }
}

std::vector<HtmlSpan> ReadReportHtml(std::u16string_view html)
{
    ReportHtmlReader reader;
    std::vector<HtmlSpan> spans = reader.Feed(html);
    for (HtmlSpan& span : reader.Finish())
    {
        if (span.kind == HtmlSpan::Kind::Text && !spans.empty() && spans.back().kind == HtmlSpan::Kind::Text)
            spans.back().text += span.text;
        else
            spans.push_back(std::move(span));
    }
    return spans;
}
