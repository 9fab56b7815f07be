#include "Format.h"

#include <algorithm>
#include <cstdio>
#include <string>
#include <type_traits>

#include "Assert.h"

namespace zul
{
namespace
{
// Widths and precisions beyond this cannot show in a cut result anyway and
// would only make the C library's narrow formatting fail.
constexpr int kMaxFieldWidth = 65536;

/// Collects output and drops everything past the limit, so a huge width or a
/// long argument never makes more than maxChars characters.
class LimitedOutput
{
public:
    explicit LimitedOutput(std::size_t maxChars) : m_MaxChars(maxChars) {}

    std::size_t Room() const { return m_MaxChars - m_Text.size(); }
    void Put(char16_t c, std::size_t count = 1) { m_Text.append(std::min(count, Room()), c); }
    void Put(const char16_t* text, std::size_t length) { m_Text.append(text, std::min(length, Room())); }
    void PutNarrow(const char* text, std::size_t length)
    {
        length = std::min(length, Room());
        for (std::size_t i = 0; i < length; ++i)
            m_Text.push_back(static_cast<char16_t>(static_cast<unsigned char>(text[i])));
    }
    tstring Take() { return std::move(m_Text); }

private:
    std::size_t m_MaxChars;
    tstring m_Text;
};

struct Spec
{
    std::string flags; // the narrow flag characters as written, for snprintf
    bool leftAlign = false;
    int width = -1;
    int precision = -1;
    bool shortInteger = false;
    char16_t conversion = 0;
};

class Formatter
{
public:
    Formatter(std::size_t maxChars, FormatArgs args) : m_Out(maxChars), m_Args(args) {}

    tstring Run(const char16_t* format)
    {
        ZUL_ASSERT(format != nullptr);
        const char16_t* p = format;
        // Parsing goes on after the output is full so that a format whose
        // arguments do not match fails whatever the length of the data.
        while (*p != u'\0')
        {
            if (*p != u'%')
            {
                const char16_t* start = p;
                while (*p != u'\0' && *p != u'%')
                    ++p;
                m_Out.Put(start, static_cast<std::size_t>(p - start));
                continue;
            }
            ++p;
            if (*p == u'%')
            {
                m_Out.Put(u'%');
                ++p;
                continue;
            }
            p = ParseSpec(p);
        }
        return m_Out.Take();
    }

private:
    const FormatArg& NextArg()
    {
        ZUL_ASSERT(m_Next < m_Args.size());
        return m_Args[m_Next++];
    }

    int NextIntArg()
    {
        const FormatArg& arg = NextArg();
        ZUL_ASSERT(arg.GetKind() == FormatArg::Kind::Integer);
        return static_cast<int>(arg.GetBits());
    }

    static int ReadNumber(const char16_t*& p)
    {
        int value = 0;
        while (*p >= u'0' && *p <= u'9')
        {
            value = std::min(value * 10 + (*p - u'0'), kMaxFieldWidth);
            ++p;
        }
        return value;
    }

    const char16_t* ParseSpec(const char16_t* p)
    {
        Spec spec;
        for (;; ++p)
        {
            if (*p == u'-' || *p == u'+' || *p == u' ' || *p == u'0' || *p == u'#')
                spec.flags.push_back(static_cast<char>(*p));
            else
                break;
        }
        if (*p == u'*')
        {
            ++p;
            const int width = NextIntArg();
            // A negative width from '*' means left alignment, as in C.
            if (width < 0)
                spec.flags.push_back('-');
            const long long magnitude = width < 0 ? -static_cast<long long>(width) : width;
            spec.width = static_cast<int>(std::min(magnitude, static_cast<long long>(kMaxFieldWidth)));
        }
        else if (*p >= u'0' && *p <= u'9')
            spec.width = ReadNumber(p);
        if (*p == u'.')
        {
            ++p;
            if (*p == u'*')
            {
                ++p;
                const int precision = NextIntArg();
                spec.precision = precision < 0 ? -1 : std::min(precision, kMaxFieldWidth);
            }
            else
                spec.precision = ReadNumber(p);
        }
        // l changes nothing: every integer here is 32 bits and every string
        // wide. h narrows an integer to 16 bits, as in C.
        for (; *p == u'h' || *p == u'l'; ++p)
            spec.shortInteger = spec.shortInteger || *p == u'h';
        spec.leftAlign = spec.flags.find('-') != std::string::npos;
        spec.conversion = *p;
        // An unknown conversion (or a format ending in '%') is a fault of the
        // program's own format string: fail loudly rather than guess.
        ZUL_ASSERT(IsKnownConversion(spec.conversion));
        Convert(spec);
        return p + 1;
    }

    static bool IsKnownConversion(char16_t c)
    {
        return c != 0 && std::u16string_view(u"diuxXocsfFeEgG").find(c) != std::u16string_view::npos;
    }

    void Convert(const Spec& spec)
    {
        const FormatArg& arg = NextArg();
        switch (spec.conversion)
        {
        case u's':
            ZUL_ASSERT(arg.GetKind() == FormatArg::Kind::String);
            ConvertString(spec, arg.GetString());
            break;
        case u'c':
        {
            ZUL_ASSERT(arg.GetKind() == FormatArg::Kind::Integer);
            const char16_t c = static_cast<char16_t>(arg.GetBits());
            ConvertString(spec, std::u16string_view(&c, 1));
            break;
        }
        case u'f':
        case u'F':
        case u'e':
        case u'E':
        case u'g':
        case u'G':
            ZUL_ASSERT(arg.GetKind() == FormatArg::Kind::Double);
            Narrow(spec, arg.GetDouble());
            break;
        case u'd':
        case u'i':
            ZUL_ASSERT(arg.GetKind() == FormatArg::Kind::Integer);
            Narrow(spec, static_cast<int>(arg.GetBits()));
            break;
        default: // u x X o
            ZUL_ASSERT(arg.GetKind() == FormatArg::Kind::Integer);
            Narrow(spec, static_cast<unsigned int>(arg.GetBits()));
            break;
        }
    }

    void ConvertString(const Spec& spec, const char16_t* text)
    {
        const char16_t* shown = text != nullptr ? text : u"(null)";
        std::size_t length = 0;
        // Stop at the precision: the text need not be terminated beyond it.
        while ((spec.precision < 0 || length < static_cast<std::size_t>(spec.precision)) &&
               shown[length] != 0)
            ++length;
        ConvertString(spec, std::u16string_view(shown, length));
    }

    void ConvertString(const Spec& spec, std::u16string_view text)
    {
        const std::size_t pad = spec.width > static_cast<int>(text.size())
                                    ? static_cast<std::size_t>(spec.width) - text.size()
                                    : 0;
        if (!spec.leftAlign)
            m_Out.Put(u' ', pad);
        m_Out.Put(text.data(), text.size());
        if (spec.leftAlign)
            m_Out.Put(u' ', pad);
    }

    // Numbers go through the C library on the narrow side, so digits and
    // rounding are exactly the standard printf's.
    template <class Value> void Narrow(const Spec& spec, Value value)
    {
        std::string narrowFormat = "%" + spec.flags;
        if (spec.width >= 0)
            narrowFormat += std::to_string(spec.width);
        if (spec.precision >= 0)
        {
            // Appended in two steps: GCC 12 at -O3 warns (-Wrestrict) on a
            // temporary "." + string here.
            narrowFormat.push_back('.');
            narrowFormat += std::to_string(spec.precision);
        }
        if (spec.shortInteger && !std::is_floating_point_v<Value>)
            narrowFormat.push_back('h');
        narrowFormat.push_back(static_cast<char>(spec.conversion));

        char small[128];
        const int needed = std::snprintf(small, sizeof small, narrowFormat.c_str(), value);
        if (needed < 0)
            return;
        if (static_cast<std::size_t>(needed) < sizeof small)
        {
            m_Out.PutNarrow(small, static_cast<std::size_t>(needed));
            return;
        }
        // Only what still fits is asked for: a cut result needs no more.
        std::string large(std::min(static_cast<std::size_t>(needed), m_Out.Room()) + 1, '\0');
        std::snprintf(large.data(), large.size(), narrowFormat.c_str(), value);
        m_Out.PutNarrow(large.data(), large.size() - 1);
    }

    LimitedOutput m_Out;
    FormatArgs m_Args;
    std::size_t m_Next = 0;
};
} // namespace

tstring FormatLimited(std::size_t maxChars, const char16_t* format, FormatArgs args)
{
    return Formatter(maxChars, args).Run(format);
}

tstring FormatStringV(const char16_t* format, FormatArgs args)
{
    return FormatLimited(1024, format, args);
}
} // namespace zul
