#pragma once
#include <string>
#include <string_view>
#include <vector>

#include "Format.h"
#include "TString.h"

namespace zul
{
/// Drops leading and trailing " \t\r\n"; a text of only those gives "".
std::string Trim(const std::string& text);

/// UTF-16 to UTF-8 exactly, no trimming; an unpaired surrogate becomes U+FFFD.
std::string Utf16ToUtf8(std::u16string_view text);
/// UTF-8 to UTF-16 exactly, no trimming; each ill-formed piece becomes U+FFFD.
tstring Utf8ToUtf16(std::string_view text);

/// UTF-16 to UTF-8 (the narrow code page on this platform), then Trim: every
/// conversion to narrow text drops leading and trailing blanks, tabs, CR and
/// LF, which the address parsing relies on. length -1 = up to the terminator.
/// An unpaired surrogate becomes U+FFFD (EF BF BD).
std::string ToMultiByte(const char16_t* text, int length = -1);
std::string ToMultiByte(const tstring& text);

/// UTF-8 to UTF-16, no trimming. Invalid UTF-8 bytes become U+FFFD.
tstring ToWide(const char* text, int length);
tstring ToWide(const std::string& text);

/// Splits at every one of the delimiter characters; adjacent delimiters give
/// empty fields, and an empty text gives one empty field.
std::vector<tstring> Tokenize(const tstring& text, const tstring& delimiters);

/// A wide character buffer of capacity 128 that either grows (doubling) or
/// cuts what does not fit.
class StringBuffer
{
public:
    explicit StringBuffer(bool bGrowable);
    ~StringBuffer();
    StringBuffer(const StringBuffer&) = delete;
    StringBuffer& operator=(const StringBuffer&) = delete;

    void Reserve(int nCapacity);
    StringBuffer& Append(const char16_t* text);
    StringBuffer& operator<<(const char16_t* text) { return Append(text); }

    const char16_t* GetBuffer() const { return m_Buffer; }
    int GetLength() const { return m_Length; }
    int GetCapacity() const { return m_Capacity; }
    bool IsGrowable() const { return m_bGrowable; }

private:
    int m_Capacity;
    int m_Length;
    bool m_bGrowable;
    char16_t* m_Buffer;
};
} // namespace zul

/// A tstring holding the given zero-terminated wide text (through a growable
/// StringBuffer); used where platform strings become the system's text.
tstring ToTString(const char16_t* text);
