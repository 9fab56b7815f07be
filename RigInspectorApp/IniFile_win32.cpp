// The profile files on Windows: only disk files are read, and a write goes to
// a temporary file beside the target that then replaces it (ReplaceFileW keeps
// the old file's attributes and security), or in place when the folder takes
// no new file.
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

bool WriteAll(HANDLE file, const std::string& data)
{
    std::size_t done = 0;
    while (done < data.size())
    {
        const DWORD chunk = static_cast<DWORD>(std::min<std::size_t>(data.size() - done, 1u << 20));
        DWORD written = 0;
        if (!::WriteFile(file, data.data() + done, chunk, &written, nullptr) || written == 0)
            return false;
        done += written;
    }
    return true;
}

/// Writes content to a new temporary file in folder; its name, or empty with error set.
std::wstring WriteTemporary(const std::wstring& folder, const std::string& content, DWORD& error)
{
    wchar_t name[MAX_PATH];
    if (::GetTempFileNameW(folder.empty() ? L"." : folder.c_str(), L"rig", 0, name) == 0)
    {
        error = ::GetLastError();
        return std::wstring();
    }
    const HANDLE file =
        ::CreateFileW(name, GENERIC_WRITE, 0, nullptr, TRUNCATE_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    bool ok = file != INVALID_HANDLE_VALUE && WriteAll(file, content) && ::FlushFileBuffers(file);
    if (!ok)
        error = ::GetLastError();
    if (file != INVALID_HANDLE_VALUE)
        ok = ::CloseHandle(file) && ok;
    if (!ok)
    {
        ::DeleteFileW(name);
        return std::wstring();
    }
    return name;
}

bool RewriteInPlace(const std::wstring& target, const std::string& content, DWORD& error)
{
    const HANDLE file = ::CreateFileW(target.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                      FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
    {
        error = ::GetLastError();
        return false;
    }
    const bool ok = ::GetFileType(file) == FILE_TYPE_DISK && WriteAll(file, content) &&
                    ::SetEndOfFile(file) && ::FlushFileBuffers(file);
    if (!ok)
        error = ::GetLastError();
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
            if (!::ReadFile(file, result.bytes.data() + done, chunk, nullptr, &at) &&
                ::GetLastError() != ERROR_IO_PENDING)
                break;
            if (!::GetOverlappedResult(file, &at, &got, TRUE) || got == 0)
                break;
            done += got;
        }
        result.bytes.resize(done); // a file that shrank meanwhile is read as it is now
    }
    ::CloseHandle(file);
    return result;
}

bool WriteWholeFile(const std::string& path, const std::string& content, tstring& why)
{
    const std::wstring target = WidePath(path);
    const DWORD attributes = ::GetFileAttributesW(target.c_str());
    const bool bExisted = attributes != INVALID_FILE_ATTRIBUTES;
    if (bExisted && (attributes & FILE_ATTRIBUTE_DIRECTORY))
    {
        why = u"it is a directory, not a file";
        return false;
    }
    const std::size_t slash = target.find_last_of(L"\\/");
    const std::wstring folder = slash == std::wstring::npos ? std::wstring() : target.substr(0, slash);
    DWORD error = 0;
    const std::wstring temp = WriteTemporary(folder, content, error);
    if (!temp.empty())
    {
        const bool ok = bExisted ? ::ReplaceFileW(target.c_str(), temp.c_str(), nullptr,
                                                  REPLACEFILE_IGNORE_MERGE_ERRORS, nullptr, nullptr) != 0
                                 : ::MoveFileExW(temp.c_str(), target.c_str(),
                                                 MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0;
        if (ok)
            return true;
        error = ::GetLastError();
        ::DeleteFileW(temp.c_str());
    }
    // A folder we may not add to can still hold a file we may change.
    if (bExisted && error == ERROR_ACCESS_DENIED && RewriteInPlace(target, content, error))
        return true;
    why = ErrorText(error);
    return false;
}
} // namespace ini_io
