#pragma once
// The system's text type and the char16_t forms of the wide C-string
// operations it uses: wchar_t is 32-bit on this platform, but the wire
// formats and the reports are made of 16-bit code units.
#include <cstddef>
#include <string>
#include <string_view>

using tstring = std::u16string;

namespace zul
{
using ::tstring;

/// Length of a zero-terminated 16-bit string (wcslen).
std::size_t WcsLen(const char16_t* text);

/// Compares two zero-terminated 16-bit strings code unit by code unit (wcscmp):
/// negative, 0 or positive.
int WcsCmp(const char16_t* a, const char16_t* b);

/// Reads a decimal integer as _wtoi does: optional leading white space
/// (space, \t, \n, \v, \f, \r), an optional sign, then digits up to the first
/// other character; 0 when there are no digits. A value beyond the 32-bit
/// range saturates to INT_MAX or INT_MIN, as the Windows runtime does, so the
/// result is always defined.
int Wtoi(const char16_t* text);
int Wtoi(std::u16string_view text);
} // namespace zul
