#include "IniFile.h"

namespace
{
bool HasLineBreak(const tstring& text)
{
    return text.find_first_of(u"\r\n") != tstring::npos;
}
} // namespace

// A line break would split the entry into lines the reader sees differently;
// a ']' in a section name or '=' in a key could never be found again.
bool IsStorableProfileEntry(const tstring& section, const tstring& key, const tstring& value)
{
    return !section.empty() && !key.empty() && !HasLineBreak(section) && !HasLineBreak(key) &&
           !HasLineBreak(value) && section.find(u']') == tstring::npos && key.find(u'=') == tstring::npos;
}
