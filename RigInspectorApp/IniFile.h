#pragma once
// The INI profile operations the settings and the options file use, with the
// Windows profile API's semantics (see IniFile.cpp for the rules we chose
// where that API leaves them open).
#include <string>
#include <utility>
#include <vector>

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
/// missing and keeping every other byte of the file. True when the write
/// succeeded.
bool WritePrivateProfileString(const tstring& section, const tstring& key, const tstring& value,
                               const std::string& path);

/// Sets several keys of one section as one unit: the file gets all of them or
/// none. It is replaced in one step where its folder allows, rewritten in
/// place where only the file is writable. On failure, pWhy (when given) says
/// why in one plain clause.
bool WritePrivateProfileStrings(const tstring& section,
                                const std::vector<std::pair<tstring, tstring>>& entries,
                                const std::string& path, tstring* pWhy = nullptr);

/// Why the file exists but cannot be read as a profile (a directory, a FIFO,
/// no permission, too large), or empty when it can be read or is missing.
tstring DescribeUnreadableProfile(const std::string& path);

/// The path as the system names the file it reaches: absolute, from the
/// working folder. For messages that must say which file a relative path meant.
std::string FullProfilePath(const std::string& path);
