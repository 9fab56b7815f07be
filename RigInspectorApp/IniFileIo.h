#pragma once
// Internal to IniFile: the file-system side of the profile operations, one
// implementation per platform (IniFile_posix.cpp, IniFile_win32.cpp). Paths
// are UTF-8.
#include <cstdint>
#include <string>
#include <string_view>

#include "share/common/TString.h"

namespace ini_io
{
/// Far above any real settings or options file (a few hundred bytes), low
/// enough that a wrong file given as one cannot take the start-up's memory.
inline constexpr std::uint64_t kMaxFileBytes = 16u * 1024 * 1024;

enum class ReadStatus
{
    Ok,
    Missing,   // no such file: the writer may create it
    Unreadable // exists but cannot be read: the writer must leave it alone
};

struct ReadResult
{
    ReadStatus status = ReadStatus::Missing;
    std::string bytes;
    tstring why; // for Unreadable: one plain clause, such as "it is a directory"
};

/// The whole file, if it is a regular file of at most kMaxFileBytes. Anything
/// else (a FIFO, a device, a directory) is refused at once, never waited on.
/// The bytes have room for spare more, so an edit never copies the file.
ReadResult ReadWholeFile(const std::string& path, std::size_t spare = 0);

/// Gives path the content: by replacing the file in one step where its
/// folder allows a new file beside it, in place where only the file itself
/// is writable. A symbolic link stays a link; an existing file keeps its owner
/// and permissions. No temporary file outlives the call, even when the
/// process is asked to end meanwhile; one left by a process killed outright
/// is removed by the next write of the same file. False with why on failure.
bool WriteWholeFile(const std::string& path, const std::string& content, tstring& why);

/// The absolute form of path, relative ones taken from the working folder, as
/// the system would name it; path itself when that cannot be worked out.
std::string FullPath(const std::string& path);

/// A write's temporary file sits beside its target as "." + the target's
/// name + this marker + six letters or digits: a name no one else picks, so
/// the next write can remove a killed run's leftovers and nothing else.
inline constexpr std::string_view kTemporaryMarker = ".rigtmp.";
inline constexpr std::size_t kTemporaryUniqueChars = 6;

inline bool IsTemporaryOf(std::string_view name, std::string_view target)
{
    if (name.size() != 1 + target.size() + kTemporaryMarker.size() + kTemporaryUniqueChars ||
        name.front() != '.' || name.substr(1, target.size()) != target ||
        name.substr(1 + target.size(), kTemporaryMarker.size()) != kTemporaryMarker)
        return false;
    for (const char c : name.substr(name.size() - kTemporaryUniqueChars))
    {
        if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z')))
            return false;
    }
    return true;
}
} // namespace ini_io
