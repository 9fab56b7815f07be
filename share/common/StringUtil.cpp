#include "StringUtil.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "Assert.h"

namespace zul
{
namespace
{
constexpr const char* kBlanks = " \t\r\n";
constexpr char32_t kReplacement = 0xFFFD;

bool IsHighSurrogate(char16_t c)
{
    return c >= 0xD800 && c <= 0xDBFF;
}

bool IsLowSurrogate(char16_t c)
{
    return c >= 0xDC00 && c <= 0xDFFF;
}

void AppendUtf8(std::string& out, char32_t cp)
{
    if (cp < 0x80)
        out.push_back(static_cast<char>(cp));
    else if (cp < 0x800)
    {
        out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
    else if (cp < 0x10000)
    {
        out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
    else
    {
        out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
}

void AppendUtf16(tstring& out, char32_t cp)
{
    if (cp < 0x10000)
        out.push_back(static_cast<char16_t>(cp));
    else
    {
        cp -= 0x10000;
        out.push_back(static_cast<char16_t>(0xD800 + (cp >> 10)));
        out.push_back(static_cast<char16_t>(0xDC00 + (cp & 0x3FF)));
    }
}

/// Decodes one UTF-8 sequence at text[i], advancing i. An ill-formed sequence
/// yields U+FFFD and consumes only its longest valid-looking prefix (at least
/// one byte), the Unicode "maximal subpart" practice, so one bad byte never
/// swallows the good text after it.
char32_t DecodeUtf8(const unsigned char* text, std::size_t length, std::size_t& i)
{
    const unsigned char lead = text[i++];
    if (lead < 0x80)
        return lead;
    int trailing = 0;
    char32_t cp = 0;
    unsigned char low = 0x80;  // bounds of the first continuation byte, which
    unsigned char high = 0xBF; // rule out overlong forms, surrogates and > U+10FFFF
    if (lead >= 0xC2 && lead <= 0xDF)
    {
        trailing = 1;
        cp = lead & 0x1F;
    }
    else if (lead >= 0xE0 && lead <= 0xEF)
    {
        trailing = 2;
        cp = lead & 0x0F;
        if (lead == 0xE0)
            low = 0xA0;
        else if (lead == 0xED)
            high = 0x9F;
    }
    else if (lead >= 0xF0 && lead <= 0xF4)
    {
        trailing = 3;
        cp = lead & 0x07;
        if (lead == 0xF0)
            low = 0x90;
        else if (lead == 0xF4)
            high = 0x8F;
    }
    else
        return kReplacement;
    for (int k = 0; k < trailing; ++k)
    {
        if (i >= length || text[i] < low || text[i] > high)
            return kReplacement;
        cp = (cp << 6) | (text[i] & 0x3F);
        ++i;
        low = 0x80;
        high = 0xBF;
    }
    return cp;
}
} // namespace

std::string Trim(const std::string& text)
{
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string::npos)
        return std::string();
    const std::size_t last = text.find_last_not_of(kBlanks);
    return text.substr(first, last - first + 1);
}

std::string Utf16ToUtf8(std::u16string_view text)
{
    const std::size_t count = text.size();
    std::string result;
    // One UTF-16 code unit takes up to 3 UTF-8 bytes (a surrogate pair, two
    // units, takes 4).
    result.reserve(3 * count);
    for (std::size_t i = 0; i < count; ++i)
    {
        const char16_t unit = text[i];
        if (IsHighSurrogate(unit) && i + 1 < count && IsLowSurrogate(text[i + 1]))
        {
            const char32_t cp =
                0x10000 + ((static_cast<char32_t>(unit) - 0xD800) << 10) + (text[i + 1] - 0xDC00);
            AppendUtf8(result, cp);
            ++i;
        }
        else if (IsHighSurrogate(unit) || IsLowSurrogate(unit))
            // An unpaired surrogate has no UTF-8 form; the replacement
            // character keeps the text valid and shows where it was.
            AppendUtf8(result, kReplacement);
        else
            AppendUtf8(result, unit);
    }
    return result;
}

tstring Utf8ToUtf16(std::string_view text)
{
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    tstring result;
    result.reserve(text.size());
    for (std::size_t i = 0; i < text.size();)
        AppendUtf16(result, DecodeUtf8(bytes, text.size(), i));
    return result;
}

std::string ToMultiByte(const char16_t* text, int length)
{
    if (text == nullptr)
        return std::string();
    const std::size_t count = length < 0 ? WcsLen(text) : static_cast<std::size_t>(length);
    return Trim(Utf16ToUtf8(std::u16string_view(text, count)));
}

std::string ToMultiByte(const tstring& text)
{
    ZUL_ASSERT(text.size() <= static_cast<std::size_t>(INT_MAX));
    return ToMultiByte(text.data(), static_cast<int>(text.size()));
}

tstring ToWide(const char* text, int length)
{
    if (text == nullptr)
        return tstring();
    const std::size_t count = length < 0 ? std::strlen(text) : static_cast<std::size_t>(length);
    return Utf8ToUtf16(std::string_view(text, count));
}

tstring ToWide(const std::string& text)
{
    ZUL_ASSERT(text.size() <= static_cast<std::size_t>(INT_MAX));
    return ToWide(text.data(), static_cast<int>(text.size()));
}

std::vector<tstring> Tokenize(const tstring& text, const tstring& delimiters)
{
    // The delimiter set ends at its first zero, as a C string would.
    const std::u16string_view set(delimiters.c_str(), WcsLen(delimiters.c_str()));
    std::vector<tstring> fields;
    std::size_t position = 0;
    for (;;)
    {
        const std::size_t found =
            set.empty() ? tstring::npos : text.find_first_of(set.data(), position, set.size());
        if (found == tstring::npos)
            break;
        fields.push_back(text.substr(position, found - position));
        position = found + 1;
    }
    fields.push_back(text.substr(position));
    return fields;
}

StringBuffer::StringBuffer(bool bGrowable)
    : m_Capacity(128), m_Length(0), m_bGrowable(bGrowable), m_Buffer(new char16_t[129])
{
    m_Buffer[0] = u'\0';
}

StringBuffer::~StringBuffer()
{
    delete[] m_Buffer;
}

void StringBuffer::Reserve(int nCapacity)
{
    if (m_Capacity >= nCapacity)
        return;
    char16_t* buffer = new char16_t[static_cast<std::size_t>(nCapacity) + 1];
    std::copy(m_Buffer, m_Buffer + m_Length + 1, buffer);
    delete[] m_Buffer;
    m_Buffer = buffer;
    m_Capacity = nCapacity;
}

StringBuffer& StringBuffer::Append(const char16_t* text)
{
    if (text == nullptr)
        return *this;
    // The whole length is used, not a 16-bit count of it: a cut count would
    // silently drop or shorten long texts.
    const std::size_t measured = WcsLen(text);
    ZUL_ASSERT(measured <= static_cast<std::size_t>(INT_MAX / 2));
    const int len = static_cast<int>(measured);
    if (len == 0)
        return *this;
    if (len > m_Capacity - m_Length)
    {
        if (m_bGrowable)
        {
            ZUL_ASSERT(std::max(m_Capacity, len) <= INT_MAX / 2);
            Reserve(2 * std::max(m_Capacity, len));
        }
        else
        {
            const int room = m_Capacity - m_Length;
            if (room < 1)
                return *this;
            std::copy(text, text + room, m_Buffer + m_Length);
            m_Length = m_Capacity;
            m_Buffer[m_Length] = u'\0';
            return *this;
        }
    }
    std::copy(text, text + len + 1, m_Buffer + m_Length);
    m_Length += len;
    return *this;
}
} // namespace zul

tstring ToTString(const char16_t* text)
{
    zul::StringBuffer buffer(true);
    buffer.Append(text);
    return tstring(buffer.GetBuffer(), static_cast<std::size_t>(buffer.GetLength()));
}
