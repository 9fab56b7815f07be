// The Windows build uses the profile functions themselves: the game reads
// option.ini through them, so their rules (ANSI files unless the file starts
// with a UTF-16 byte-order mark, comments, blanks, quotes, the buffer cut) are
// by definition the right ones here.
#include "IniFile.h"

#include <windows.h>
// Our functions keep their own names; the SDK's are called by their W names.
#undef GetPrivateProfileString
#undef GetPrivateProfileInt
#undef WritePrivateProfileString

#include "share/common/StringUtil.h"

namespace
{
// The buffer the callers of the profile functions give them: 511 characters
// and the terminator.
constexpr DWORD kValueBuffer = 512;

const wchar_t* W(const tstring& text)
{
    return reinterpret_cast<const wchar_t*>(text.c_str());
}

tstring WidePath(const std::string& path)
{
    return zul::Utf8ToUtf16(path);
}
} // namespace

tstring GetPrivateProfileString(const tstring& section, const tstring& key, const tstring& defaultValue,
                                const std::string& path)
{
    wchar_t buffer[kValueBuffer] = {};
    const DWORD length = ::GetPrivateProfileStringW(W(section), W(key), W(defaultValue), buffer, kValueBuffer,
                                                    W(WidePath(path)));
    return tstring(reinterpret_cast<const char16_t*>(buffer), length);
}

int GetPrivateProfileInt(const tstring& section, const tstring& key, int defaultValue,
                         const std::string& path)
{
    return static_cast<int>(::GetPrivateProfileIntW(W(section), W(key), defaultValue, W(WidePath(path))));
}

bool WritePrivateProfileString(const tstring& section, const tstring& key, const tstring& value,
                               const std::string& path)
{
    if (!IsStorableProfileEntry(section, key, value))
        return false;
    return ::WritePrivateProfileStringW(W(section), W(key), W(value), W(WidePath(path))) != FALSE;
}
