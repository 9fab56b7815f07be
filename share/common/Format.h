#pragma once
// The wide printf formatter with the Windows meaning, written by hand because
// no library formats 16-bit strings with "%s" taking a wide string and
// "%d"/"%ld"/"%lx" taking 32-bit values. Arguments are typed, so a wrong
// argument type is a compile error (64-bit integers, narrow strings) or an
// assertion failure (a conversion that does not match its argument), never
// undefined behaviour.
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "TString.h"

namespace zul
{
/// One printf argument, as the Windows wide printf functions see it.
class FormatArg
{
public:
    enum class Kind
    {
        Integer, // 32 bits: %d %i %u %x %X %o %c; %ld and %lx are the same 32 bits
        Double,  // %f %e %g (float is promoted, as through "...")
        String   // %s: a wide string; a null pointer prints "(null)"
    };

    // Integers are kept as their 32-bit pattern: an unsigned value given to
    // "%d" prints as the signed 32-bit int with the same bits (4294967295 -> -1),
    // as it does on Windows; 16-bit values are promoted first (65535 -> 65535).
    FormatArg(int v) : m_Kind(Kind::Integer), m_Bits(static_cast<std::uint32_t>(v)) {}
    FormatArg(unsigned int v) : m_Kind(Kind::Integer), m_Bits(v) {}
    FormatArg(short v) : FormatArg(static_cast<int>(v)) {}
    FormatArg(unsigned short v) : FormatArg(static_cast<int>(v)) {}
    FormatArg(signed char v) : FormatArg(static_cast<int>(v)) {}
    FormatArg(unsigned char v) : FormatArg(static_cast<int>(v)) {}
    FormatArg(char16_t v) : FormatArg(static_cast<int>(v)) {}
    FormatArg(bool v) : FormatArg(static_cast<int>(v)) {}
    FormatArg(double v) : m_Kind(Kind::Double), m_Double(v) {}
    FormatArg(float v) : FormatArg(static_cast<double>(v)) {}
    FormatArg(const char16_t* v) : m_Kind(Kind::String), m_Pointer(v) {}
    FormatArg(const tstring& v) : m_Kind(Kind::String), m_Pointer(v.c_str()) {}

    // 64-bit integers, narrow strings and anything else have no Windows wide
    // printf meaning in this system: refuse them at compile time.
    template <class T> FormatArg(const T&) = delete;

    Kind GetKind() const { return m_Kind; }
    std::uint32_t GetBits() const { return m_Bits; }
    double GetDouble() const { return m_Double; }
    const char16_t* GetString() const { return m_Pointer; }

private:
    Kind m_Kind;
    std::uint32_t m_Bits = 0;
    double m_Double = 0.0;
    const char16_t* m_Pointer = nullptr;
};

using FormatArgs = std::span<const FormatArg>;

/// Formats into at most maxChars characters: longer output is cut to its first
/// maxChars characters, never written past. Supported: flags "-+ 0#", width
/// and precision (digits or '*'), the length modifiers h (16-bit) and l (32-bit here),
/// the conversions d i u x X o c s f F e E g G and %%. A missing argument or a
/// conversion that does not match its argument's kind is an assertion failure.
tstring FormatLimited(std::size_t maxChars, const char16_t* format, FormatArgs args);

/// zul::FormatStringV: at most 1,024 characters.
tstring FormatStringV(const char16_t* format, FormatArgs args);

/// zul::FormatString: at most 1,024 characters.
template <class... Args> tstring FormatString(const char16_t* format, const Args&... args)
{
    const std::array<FormatArg, sizeof...(Args)> list{FormatArg(args)...};
    return FormatStringV(format, FormatArgs(list.data(), list.size()));
}

/// The same engine with a caller's limit (the report's 512-character buffer
/// holds at most 511 characters and the terminating zero).
template <class... Args>
tstring FormatStringN(std::size_t maxChars, const char16_t* format, const Args&... args)
{
    const std::array<FormatArg, sizeof...(Args)> list{FormatArg(args)...};
    return FormatLimited(maxChars, format, FormatArgs(list.data(), list.size()));
}
} // namespace zul
