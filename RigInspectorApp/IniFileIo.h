#pragma once
// Internal to IniFile: the file-system side of the profile operations, one
// implementation per platform (IniFile_posix.cpp, IniFile_win32.cpp). Paths
// are UTF-8.
#include <cstdint>
#include <string>

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
/// process is asked to end meanwhile. False with why on failure.
bool WriteWholeFile(const std::string& path, const std::string& content, tstring& why);
} // namespace ini_io
