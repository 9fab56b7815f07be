#include "TString.h"

#include <climits>
#include <cstdint>

namespace zul
{
std::size_t WcsLen(const char16_t* text)
{
    std::size_t length = 0;
    while (text[length] != u'\0')
        ++length;
    return length;
}

int WcsCmp(const char16_t* a, const char16_t* b)
{
    while (*a != u'\0' && *a == *b)
    {
        ++a;
        ++b;
    }
    // Code units compare as unsigned 16-bit values, as wcscmp does on Windows.
    return static_cast<int>(*a) - static_cast<int>(*b);
}

namespace
{
bool IsWtoiSpace(char16_t c)
{
    return c == u' ' || (c >= u'\t' && c <= u'\r');
}
} // namespace

int Wtoi(std::u16string_view text)
{
    std::size_t i = 0;
    while (i < text.size() && IsWtoiSpace(text[i]))
        ++i;
    bool negative = false;
    if (i < text.size() && (text[i] == u'+' || text[i] == u'-'))
    {
        negative = text[i] == u'-';
        ++i;
    }
    // Accumulate in 64 bits and stop growing once past the 32-bit range, so
    // that any number of digits saturates instead of overflowing.
    const std::int64_t limit = negative ? -static_cast<std::int64_t>(INT_MIN) : INT_MAX;
    std::int64_t value = 0;
    for (; i < text.size() && text[i] >= u'0' && text[i] <= u'9'; ++i)
    {
        value = value * 10 + (text[i] - u'0');
        if (value > limit)
            return negative ? INT_MIN : INT_MAX;
    }
    return static_cast<int>(negative ? -value : value);
}

int Wtoi(const char16_t* text)
{
    if (text == nullptr)
        return 0;
    return Wtoi(std::u16string_view(text, WcsLen(text)));
}
} // namespace zul
