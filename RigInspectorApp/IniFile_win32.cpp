// The profile files on Windows: only disk files are read, and a write goes to
// a temporary file beside the target that then replaces it (ReplaceFileW keeps
// the old file's attributes and security; MoveFileExW where that is refused),
// or, when neither can, over the file itself in place.
#include "IniFileIo.h"

#include <windows.h>

#include <algorithm>
#include <string>

namespace ini_io
{
namespace
{
std::wstring WidePath(const std::string& path)
{
    const int length =
        ::MultiByteToWideChar(CP_UTF8, 0, path.data(), static_cast<int>(path.size()), nullptr, 0);
    std::wstring wide(static_cast<std::size_t>(length), L'\0');
    if (length > 0)
        ::MultiByteToWideChar(CP_UTF8, 0, path.data(), static_cast<int>(path.size()), wide.data(), length);
    return wide;
}

std::string Utf8Path(const std::wstring& path)
{
    const int length = ::WideCharToMultiByte(CP_UTF8, 0, path.data(), static_cast<int>(path.size()), nullptr,
                                             0, nullptr, nullptr);
    std::string narrow(static_cast<std::size_t>(std::max(length, 0)), '\0');
    if (length > 0)
        ::WideCharToMultiByte(CP_UTF8, 0, path.data(), static_cast<int>(path.size()), narrow.data(), length,
                              nullptr, nullptr);
    return narrow;
}

/// The full path with backslashes, or empty with the error set. ReplaceFileW
/// refuses a relative path written with forward slashes (the form the
/// options file is named in) with ERROR_DIRECTORY, where CreateFileW takes it.
std::wstring FullWidePath(const std::wstring& path, DWORD& error)
{
    const DWORD needed = path.empty() ? 0 : ::GetFullPathNameW(path.c_str(), 0, nullptr, nullptr);
    if (needed == 0)
    {
        error = path.empty() ? ERROR_INVALID_NAME : ::GetLastError();
        return std::wstring();
    }
    std::wstring full(needed, L'\0');
    const DWORD length = ::GetFullPathNameW(path.c_str(), needed, full.data(), nullptr);
    if (length == 0 || length >= needed)
    {
        error = length == 0 ? ::GetLastError() : ERROR_INVALID_NAME;
        return std::wstring();
    }
    full.resize(length);
    return full;
}

tstring ErrorText(DWORD error)
{
    wchar_t* pText = nullptr;
    const DWORD length = ::FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM |
                                              FORMAT_MESSAGE_IGNORE_INSERTS,
                                          nullptr, error, 0, reinterpret_cast<wchar_t*>(&pText), 0, nullptr);
    tstring text;
    for (DWORD i = 0; i < length; ++i)
        text.push_back(static_cast<char16_t>(pText[i]));
    if (pText != nullptr)
        ::LocalFree(pText);
    while (!text.empty() && (text.back() == u'\n' || text.back() == u'\r' || text.back() == u'.'))
        text.pop_back();
    if (text.empty())
    {
        const std::string code = "system error " + std::to_string(error);
        text.assign(code.begin(), code.end());
    }
    return text;
}

/// Writes from the handle's position; the bytes written, all of data on success.
std::size_t WriteAll(HANDLE file, const std::string& data)
{
    std::size_t done = 0;
    while (done < data.size())
    {
        const DWORD chunk = static_cast<DWORD>(std::min<std::size_t>(data.size() - done, 1u << 20));
        DWORD written = 0;
        if (!::WriteFile(file, data.data() + done, chunk, &written, nullptr) || written == 0)
            break;
        done += written;
    }
    return done;
}

bool SetSize(HANDLE file, std::uint64_t size)
{
    LARGE_INTEGER at{};
    at.QuadPart = static_cast<LONGLONG>(size);
    return ::SetFilePointerEx(file, at, nullptr, FILE_BEGIN) && ::SetEndOfFile(file);
}

struct SplitPath
{
    std::wstring folder; // with its trailing backslash
    std::wstring name;
};

SplitPath Split(const std::wstring& full)
{
    const std::size_t slash = full.find_last_of(L"\\/");
    return {full.substr(0, slash + 1), full.substr(slash + 1)};
}

/// Removes what a write of this file killed outright (TerminateProcess, a
/// crash, power loss) left beside it: only plain files named as our
/// temporaries are.
void RemoveLeftovers(const SplitPath& target)
{
    const std::wstring pattern =
        target.folder + L"." + target.name + WidePath(std::string(kTemporaryMarker)) + L"*";
    WIN32_FIND_DATAW found{};
    const HANDLE search = ::FindFirstFileW(pattern.c_str(), &found);
    if (search == INVALID_HANDLE_VALUE)
        return;
    const std::string name = Utf8Path(target.name);
    do
    {
        // The pattern also matches short 8.3 names; the long name decides.
        if ((found.dwFileAttributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT)) == 0 &&
            IsTemporaryOf(Utf8Path(found.cFileName), name))
            ::DeleteFileW((target.folder + found.cFileName).c_str());
    } while (::FindNextFileW(search, &found));
    ::FindClose(search);
}

/// Writes content to a new temporary file beside the target; its name, or
/// empty with the error set and nothing left behind.
std::wstring WriteTemporary(const SplitPath& target, const std::string& content, DWORD& error)
{
    static const wchar_t kDigits[] = L"0123456789abcdefghijklmnopqrstuvwxyz";
    static LONG s_Counter = 0;
    const std::wstring stem = target.folder + L"." + target.name + WidePath(std::string(kTemporaryMarker));
    // A few names are tried in case one is taken: by a leftover we could not
    // remove, or by another run of this process id.
    for (int attempt = 0; attempt < 16; ++attempt)
    {
        unsigned long long seed = (static_cast<unsigned long long>(::GetCurrentProcessId()) << 20) ^
                                  static_cast<unsigned long long>(::InterlockedIncrement(&s_Counter)) ^
                                  (static_cast<unsigned long long>(::GetTickCount()) << 8);
        std::wstring name = stem;
        for (std::size_t i = 0; i < kTemporaryUniqueChars; ++i, seed /= 36)
            name.push_back(kDigits[seed % 36]);
        const HANDLE file = ::CreateFileW(name.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                          FILE_ATTRIBUTE_NORMAL, nullptr);
        if (file == INVALID_HANDLE_VALUE)
        {
            error = ::GetLastError();
            if (error == ERROR_FILE_EXISTS || error == ERROR_ALREADY_EXISTS)
                continue;
            return std::wstring();
        }
        bool ok = WriteAll(file, content) == content.size() && ::FlushFileBuffers(file);
        if (!ok)
            error = ::GetLastError();
        if (!::CloseHandle(file) && ok)
        {
            error = ::GetLastError();
            ok = false;
        }
        if (ok)
            return name;
        ::DeleteFileW(name.c_str());
        return std::wstring();
    }
    return std::wstring();
}

/// Whether the file can be renamed away now, as ReplaceFileW must: not while
/// another process holds it open without delete sharing. Asked first because
/// Wine's ReplaceFileW, refused, leaves a file of its own ("rf*.tmp") in the
/// folder.
bool CanBeRenamedAway(const std::wstring& target, DWORD& error)
{
    const HANDLE file = ::CreateFileW(target.c_str(), DELETE | SYNCHRONIZE,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                      OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
    {
        error = ::GetLastError();
        return false;
    }
    ::CloseHandle(file);
    return true;
}

/// The last way to change a file that cannot be replaced: over itself. Room
/// for the new content is taken first, so a full disk fails the write with
/// the old content whole, and the bytes are locked while they change, so
/// another process reads the old content or an error, never half of each.
/// Anyone else who may write the file keeps us out (we share reading only).
bool RewriteInPlace(const std::wstring& target, const std::string& content, DWORD& error)
{
    const HANDLE file = ::CreateFileW(target.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                      OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
    {
        error = ::GetLastError();
        return false;
    }
    LARGE_INTEGER oldSize{};
    bool ok = ::GetFileType(file) == FILE_TYPE_DISK && ::GetFileSizeEx(file, &oldSize);
    const std::uint64_t span =
        std::max<std::uint64_t>(static_cast<std::uint64_t>(oldSize.QuadPart), content.size());
    OVERLAPPED whole{};
    const bool bLocked =
        ok && span > 0 &&
        ::LockFileEx(file, LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY, 0,
                     static_cast<DWORD>(span & 0xFFFFFFFFu), static_cast<DWORD>(span >> 32), &whole);
    ok = ok && (span == 0 || bLocked);
    if (ok && content.size() > static_cast<std::uint64_t>(oldSize.QuadPart))
        ok = SetSize(file, content.size());
    if (ok)
    {
        LARGE_INTEGER start{};
        const std::size_t written =
            ::SetFilePointerEx(file, start, nullptr, FILE_BEGIN) ? WriteAll(file, content) : 0;
        ok = written == content.size() && SetSize(file, content.size()) && ::FlushFileBuffers(file);
        if (!ok)
        {
            error = ::GetLastError();
            if (written == 0) // nothing of the old content changed: its size comes back too
                SetSize(file, static_cast<std::uint64_t>(oldSize.QuadPart));
        }
    }
    else
    {
        error = ::GetLastError();
    }
    if (bLocked)
        ::UnlockFileEx(file, 0, static_cast<DWORD>(span & 0xFFFFFFFFu), static_cast<DWORD>(span >> 32),
                       &whole);
    ::CloseHandle(file);
    return ok;
}
} // namespace

ReadResult ReadWholeFile(const std::string& path, std::size_t spare)
{
    ReadResult result;
    const std::wstring wide = WidePath(path);
    const DWORD attributes = ::GetFileAttributesW(wide.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES)
    {
        const DWORD error = ::GetLastError();
        const bool bMissing = error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
        result.status = bMissing ? ReadStatus::Missing : ReadStatus::Unreadable;
        result.why = ErrorText(error);
        return result;
    }
    result.status = ReadStatus::Unreadable;
    if (attributes & FILE_ATTRIBUTE_DIRECTORY)
    {
        result.why = u"it is a directory, not a file";
        return result;
    }
    // Overlapped never matters for a disk file; for a pipe it keeps the open
    // from waiting on the other end.
    const HANDLE file = ::CreateFileW(wide.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                      OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OVERLAPPED, nullptr);
    if (file == INVALID_HANDLE_VALUE)
    {
        result.why = ErrorText(::GetLastError());
        return result;
    }
    LARGE_INTEGER size{};
    const DWORD type = ::GetFileType(file);
    if (type == FILE_TYPE_PIPE)
        result.why = u"it is a named pipe, not a file";
    else if (type != FILE_TYPE_DISK)
        result.why = u"it is a device, not a file";
    else if (!::GetFileSizeEx(file, &size))
        result.why = ErrorText(::GetLastError());
    else if (static_cast<std::uint64_t>(size.QuadPart) > kMaxFileBytes)
        result.why = u"it is larger than 16 MiB";
    else
        result.status = ReadStatus::Ok;
    if (result.status == ReadStatus::Ok)
    {
        // An overlapped handle reads at the offset given, synchronously
        // waited for here.
        result.bytes.reserve(static_cast<std::size_t>(size.QuadPart) + spare);
        result.bytes.resize(static_cast<std::size_t>(size.QuadPart));
        std::size_t done = 0;
        while (done < result.bytes.size())
        {
            OVERLAPPED at{};
            at.Offset = static_cast<DWORD>(done & 0xFFFFFFFFu);
            at.OffsetHigh = static_cast<DWORD>(static_cast<std::uint64_t>(done) >> 32);
            DWORD got = 0;
            const DWORD chunk =
                static_cast<DWORD>(std::min<std::size_t>(result.bytes.size() - done, 1u << 20));
            if ((!::ReadFile(file, result.bytes.data() + done, chunk, nullptr, &at) &&
                 ::GetLastError() != ERROR_IO_PENDING) ||
                !::GetOverlappedResult(file, &at, &got, TRUE))
            {
                // Half a file (say, one locked by a writer) edited and written
                // back would lose the rest of it.
                const DWORD error = ::GetLastError();
                if (error == ERROR_HANDLE_EOF)
                    break;
                result.status = ReadStatus::Unreadable;
                result.why = ErrorText(error);
                break;
            }
            if (got == 0)
                break;
            done += got;
        }
        result.bytes.resize(done); // a file that shrank meanwhile is read as it is now
        if (result.status != ReadStatus::Ok)
            result.bytes.clear();
    }
    ::CloseHandle(file);
    return result;
}

bool WriteWholeFile(const std::string& path, const std::string& content, tstring& why)
{
    DWORD error = 0;
    const std::wstring target = FullWidePath(WidePath(path), error);
    if (target.empty())
    {
        why = ErrorText(error);
        return false;
    }
    const SplitPath parts = Split(target);
    RemoveLeftovers(parts);
    const DWORD attributes = ::GetFileAttributesW(target.c_str());
    const bool bExisted = attributes != INVALID_FILE_ATTRIBUTES;
    if (bExisted && (attributes & FILE_ATTRIBUTE_DIRECTORY))
    {
        why = u"it is a directory, not a file";
        return false;
    }
    // The player's (or the game's) own "do not change": the system's profile
    // functions respect it, and a replace would quietly drop it.
    if (bExisted && (attributes & FILE_ATTRIBUTE_READONLY))
    {
        why = u"it is read-only";
        return false;
    }
    const std::wstring temp = WriteTemporary(parts, content, error);
    if (!temp.empty())
    {
        error = 0;
        if (bExisted && CanBeRenamedAway(target, error) &&
            ::ReplaceFileW(target.c_str(), temp.c_str(), nullptr, REPLACEFILE_IGNORE_MERGE_ERRORS, nullptr,
                           nullptr))
            return true;
        // Refused (a file system without it, a file open without delete
        // sharing), or the old file already gone with the new one still
        // under its temporary name: a plain rename over it is the next best.
        if (bExisted && error == 0)
            error = ::GetLastError();
        if (::MoveFileExW(temp.c_str(), target.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
            return true;
        if (!bExisted)
            error = ::GetLastError();
        ::DeleteFileW(temp.c_str());
    }
    // A folder we may not add to, or a file held open, can still take new
    // content over the old.
    if (bExisted && ::GetFileAttributesW(target.c_str()) != INVALID_FILE_ATTRIBUTES &&
        RewriteInPlace(target, content, error))
        return true;
    why = ErrorText(error);
    return false;
}

std::string FullPath(const std::string& path)
{
    DWORD error = 0;
    const std::wstring full = FullWidePath(WidePath(path), error);
    return full.empty() ? path : Utf8Path(full);
}
} // namespace ini_io
