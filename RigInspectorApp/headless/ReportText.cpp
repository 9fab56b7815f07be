#include "ReportText.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <utility>

#include "share/common/StringUtil.h"

namespace
{
std::string Lower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

/// The value of attribute name in a tag's text (quoted or bare), or "".
std::string Attribute(const std::string& tag, const std::string& name)
{
    const std::string lower = Lower(tag);
    std::size_t pos = 0;
    while ((pos = lower.find(name, pos)) != std::string::npos)
    {
        const bool bWordStart = pos > 0 && std::isspace(static_cast<unsigned char>(lower[pos - 1]));
        std::size_t eq = pos + name.size();
        while (eq < lower.size() && lower[eq] == ' ')
            ++eq;
        if (!bWordStart || eq >= lower.size() || lower[eq] != '=')
        {
            pos += name.size();
            continue;
        }
        std::size_t start = eq + 1;
        while (start < tag.size() && tag[start] == ' ')
            ++start;
        if (start < tag.size() && (tag[start] == '"' || tag[start] == '\''))
        {
            const std::size_t end = tag.find(tag[start], start + 1);
            return tag.substr(start + 1, end == std::string::npos ? std::string::npos : end - start - 1);
        }
        std::size_t end = start;
        while (end < tag.size() && !std::isspace(static_cast<unsigned char>(tag[end])) && tag[end] != '/')
            ++end;
        return tag.substr(start, end - start);
    }
    return {};
}

std::string AnsiFor(const std::string& colour)
{
    // Black is drawn in the terminal's own foreground: black on a dark
    // terminal would hide the text.
    if (colour == "red")
        return "\x1b[31m";
    if (colour == "blue")
        return "\x1b[34m";
    if (colour == "green")
        return "\x1b[32m";
    return "\x1b[39m";
}
} // namespace

namespace
{
constexpr std::size_t kMaxEntity = 12;
}

std::string ReportText::Feed(std::u16string_view html)
{
    m_out.clear();
    std::u16string input = std::move(m_pending);
    m_pending.clear();
    input.append(html);

    std::size_t i = 0;
    while (i < input.size())
    {
        const char16_t c = input[i];
        if (c == u'&')
        {
            // An entity is '&', a name of letters, digits or '#', then ';'.
            std::size_t k = i + 1;
            while (k < input.size() && k - i <= kMaxEntity &&
                   (input[k] == u'#' || (input[k] < 0x80 && std::isalnum(static_cast<int>(input[k])))))
                ++k;
            if (k == input.size() && k - i <= kMaxEntity)
            {
                m_pending = input.substr(i);
                break;
            }
            if (input[k] == u';' && k > i + 1)
            {
                Entity(std::u16string_view(input).substr(i + 1, k - i - 1));
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
            const bool bTagStart = i + 1 >= input.size() || input[i + 1] == u'/' || input[i + 1] == u'!' ||
                                   (input[i + 1] < 0x80 && std::isalpha(static_cast<int>(input[i + 1])));
            if (!bTagStart)
            {
                Text(u"<");
                ++i;
                continue;
            }
            const std::size_t end = input.find(u'>', i + 1);
            if (end == std::u16string::npos)
            {
                m_pending = input.substr(i);
                break;
            }
            Tag(std::u16string_view(input).substr(i + 1, end - i - 1));
            i = end + 1;
            continue;
        }
        std::size_t next = i;
        while (next < input.size() && input[next] != u'<' && input[next] != u'&')
            ++next;
        Text(std::u16string_view(input).substr(i, next - i));
        i = next;
    }
    return std::move(m_out);
}

std::string ReportText::Finish()
{
    m_out.clear();
    if (!m_pending.empty())
        Text(std::exchange(m_pending, {}));
    if (m_bColor && (!m_colours.empty() || m_bold > 0))
        m_out += "\x1b[0m";
    m_colours.clear();
    m_bold = 0;
    m_appliedColour = AnsiFor("");
    if (m_bLineOpen)
        m_out += '\n';
    m_bLineOpen = false;
    return std::move(m_out);
}

void ReportText::Text(std::u16string_view text)
{
    std::u16string plain(text);
    // As in the browser, line ends and tabs inside the text are blanks.
    std::replace_if(
        plain.begin(), plain.end(), [](char16_t ch) { return ch == u'\r' || ch == u'\n' || ch == u'\t'; },
        u' ');
    Emit(zul::Utf16ToUtf8(plain));
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

void ReportText::ApplyColour()
{
    if (!m_bColor)
        return;
    std::string colour;
    for (auto it = m_colours.rbegin(); it != m_colours.rend(); ++it)
    {
        if (!it->empty())
        {
            colour = *it;
            break;
        }
    }
    const std::string code = AnsiFor(colour);
    if (code != m_appliedColour)
        m_out += code;
    m_appliedColour = code;
}

void ReportText::Tag(std::u16string_view inner)
{
    const std::string tag = zul::Utf16ToUtf8(inner);
    const bool bClosing = !tag.empty() && tag[0] == '/';
    std::size_t nameEnd = bClosing ? 1 : 0;
    while (nameEnd < tag.size() && std::isalnum(static_cast<unsigned char>(tag[nameEnd])))
        ++nameEnd;
    const std::string name = Lower(tag.substr(bClosing ? 1 : 0, nameEnd - (bClosing ? 1 : 0)));

    if (name == "br" || name == "p")
    {
        m_out += '\n';
        m_bLineOpen = false;
    }
    else if (name == "font")
    {
        if (bClosing)
        {
            if (!m_colours.empty())
                m_colours.pop_back();
        }
        else
        {
            m_colours.push_back(Lower(Attribute(tag, "color")));
        }
        ApplyColour();
    }
    else if (name == "b" || name == "strong")
    {
        m_bold = std::max(0, m_bold + (bClosing ? -1 : 1));
        if (m_bColor)
            m_out += m_bold > 0 ? "\x1b[1m" : "\x1b[22m";
    }
    else if (name == "a")
    {
        if (!bClosing)
        {
            m_bInLink = true;
            m_linkHref = Attribute(tag, "href");
            m_linkText.clear();
        }
        else if (m_bInLink)
        {
            m_bInLink = false;
            // The address is what a terminal reader needs; "click here" alone
            // leads nowhere.
            if (!m_linkHref.empty() && m_linkText != m_linkHref)
                Emit(" (" + m_linkHref + ")");
        }
    }
}

void ReportText::Entity(std::u16string_view entity)
{
    const std::string name = zul::Utf16ToUtf8(entity);
    std::u16string decoded;
    if (name == "amp")
        decoded = u"&";
    else if (name == "lt")
        decoded = u"<";
    else if (name == "gt")
        decoded = u">";
    else if (name == "quot")
        decoded = u"\"";
    else if (name == "apos")
        decoded = u"'";
    else if (name == "nbsp")
        decoded = u" ";
    else if (name.size() > 1 && name[0] == '#')
    {
        const bool bHex = name[1] == 'x' || name[1] == 'X';
        std::uint32_t code = 0;
        bool bValid = name.size() > (bHex ? 2u : 1u);
        for (std::size_t k = bHex ? 2 : 1; k < name.size() && bValid; ++k)
        {
            const int digit =
                bHex ? (std::isxdigit(static_cast<unsigned char>(name[k]))
                            ? (std::isdigit(static_cast<unsigned char>(name[k]))
                                   ? name[k] - '0'
                                   : std::tolower(static_cast<unsigned char>(name[k])) - 'a' + 10)
                            : -1)
                     : (std::isdigit(static_cast<unsigned char>(name[k])) ? name[k] - '0' : -1);
            bValid = digit >= 0 && code <= 0x10FFFF;
            code = code * (bHex ? 16 : 10) + static_cast<std::uint32_t>(digit);
        }
        if (!bValid || code > 0x10FFFF || code == 0)
            code = 0xFFFD;
        if (code >= 0x10000)
        {
            decoded += static_cast<char16_t>(0xD800 + ((code - 0x10000) >> 10));
            decoded += static_cast<char16_t>(0xDC00 + ((code - 0x10000) & 0x3FF));
        }
        else
        {
            decoded += static_cast<char16_t>(code);
        }
    }
    else
    {
        // Unknown: shown as written.
        Emit("&" + name + ";");
        return;
    }
    Emit(zul::Utf16ToUtf8(decoded));
}
