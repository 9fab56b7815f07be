#pragma once
// The INI profile operations the settings and the options file use, with the
// Windows profile API's semantics: on Windows the API itself, elsewhere our
// own reader and writer (see IniFile_posix.cpp for the rules we chose where
// that API leaves them open).
#include <string>

#include "share/common/TString.h"

/// The value of [section] key, or defaultValue when the file, the section or
/// the key is missing; a key present with an empty value gives "". At most the
/// first 511 characters are kept. Section and key names ignore case.
tstring GetPrivateProfileString(const tstring& section, const tstring& key, const tstring& defaultValue,
                                const std::string& path);

/// The number at the start of the value (as _wtoi reads it), or defaultValue
/// when the file, the section or the key is missing.
int GetPrivateProfileInt(const tstring& section, const tstring& key, int defaultValue,
                         const std::string& path);

/// Sets [section] key to value, creating the file, the section or the key when
/// missing and keeping every other byte of the file. On Linux the file is
/// replaced atomically, never left half-written. False, without writing, for
/// an entry that is not storable. True when the write succeeded.
bool WritePrivateProfileString(const tstring& section, const tstring& key, const tstring& value,
                               const std::string& path);

/// False for an entry the file could not give back: an empty section or key,
/// a line break anywhere, ']' in the section or '=' in the key.
bool IsStorableProfileEntry(const tstring& section, const tstring& key, const tstring& value);
