// The profile files on POSIX: open without waiting, accept only regular
// files, replace by rename from a temporary file beside the target.
#include "IniFileIo.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "share/common/StringUtil.h"

namespace ini_io
{
namespace
{
tstring ErrnoText(int error)
{
    return zul::ToWide(std::string(std::strerror(error)));
}

/// Why a file of this kind is not a profile, or empty for a regular file.
tstring NotAFile(mode_t mode)
{
    if (S_ISREG(mode))
        return tstring();
    if (S_ISDIR(mode))
        return u"it is a directory, not a file";
    if (S_ISFIFO(mode))
        return u"it is a named pipe, not a file";
    if (S_ISCHR(mode) || S_ISBLK(mode))
        return u"it is a device, not a file";
    if (S_ISSOCK(mode))
        return u"it is a socket, not a file";
    return u"it is not a regular file";
}

bool WriteAll(int fd, const std::string& data)
{
    std::size_t done = 0;
    while (done < data.size())
    {
        const ssize_t n = ::write(fd, data.data() + done, data.size() - done);
        if (n < 0)
        {
            if (errno == EINTR)
                continue;
            return false;
        }
        done += static_cast<std::size_t>(n);
    }
    return true;
}

/// The file a write really changes: a symbolic link is followed, so the link
/// stays a link and its target gets the new content. Empty when the path is a
/// link that leads nowhere (we do not guess where to create its target).
std::string ResolveTarget(const std::string& path)
{
    struct stat st
    {
    };
    if (::lstat(path.c_str(), &st) != 0 || !S_ISLNK(st.st_mode))
        return path;
    char* resolved = ::realpath(path.c_str(), nullptr);
    if (resolved == nullptr)
        return std::string();
    std::string target(resolved);
    std::free(resolved);
    return target;
}

volatile sig_atomic_t g_DeferredSignal = 0;

extern "C" void RememberSignal(int signal)
{
    g_DeferredSignal = signal;
}

/// Holds back the signals that end a process politely while a temporary file
/// exists, so it is renamed or removed before they take effect; then the
/// signal is raised again under the process's own disposition. A handler for
/// the whole process, not a thread's mask: the signal may be sent to any
/// thread (the CLI's spinner, the GUI's helpers). Writes run on one thread.
class DeferredTermination
{
public:
    DeferredTermination()
    {
        g_DeferredSignal = 0;
        struct sigaction remember
        {
        };
        remember.sa_handler = &RememberSignal;
        sigemptyset(&remember.sa_mask);
        for (std::size_t i = 0; i < kSignals.size(); ++i)
        {
            m_bSwapped[i] = ::sigaction(kSignals[i], nullptr, &m_Old[i]) == 0 &&
                            m_Old[i].sa_handler != SIG_IGN &&
                            ::sigaction(kSignals[i], &remember, nullptr) == 0;
        }
    }
    ~DeferredTermination()
    {
        for (std::size_t i = 0; i < kSignals.size(); ++i)
        {
            if (m_bSwapped[i])
                ::sigaction(kSignals[i], &m_Old[i], nullptr);
        }
        if (g_DeferredSignal != 0)
            ::raise(g_DeferredSignal);
    }
    DeferredTermination(const DeferredTermination&) = delete;
    DeferredTermination& operator=(const DeferredTermination&) = delete;

private:
    static constexpr std::array<int, 4> kSignals{SIGINT, SIGTERM, SIGHUP, SIGQUIT};
    std::array<struct sigaction, 4> m_Old{};
    std::array<bool, 4> m_bSwapped{};
};

bool ReplaceByRename(const std::string& target, const std::string& content, const struct stat* pOld,
                     int& error)
{
    const std::size_t slash = target.rfind('/');
    const std::string dir = slash == std::string::npos ? std::string() : target.substr(0, slash + 1);
    const std::string base = slash == std::string::npos ? target : target.substr(slash + 1);
    std::string temp =
        dir + "." + base + std::string(kTemporaryMarker) + std::string(kTemporaryUniqueChars, 'X');
    const int fd = ::mkstemp(temp.data());
    if (fd < 0)
    {
        error = errno;
        return false;
    }
    bool ok = WriteAll(fd, content);
    if (ok && pOld != nullptr)
    {
        // The replaced file keeps its permission bits (and its owner, where we may set it).
        ok = ::fchmod(fd, pOld->st_mode & 07777) == 0;
        if (ok && (pOld->st_uid != ::geteuid() || pOld->st_gid != ::getegid()))
            (void)!::fchown(fd, pOld->st_uid, pOld->st_gid);
    }
    else if (ok)
    {
        // A new file gets the mode a plain creation would give it.
        const mode_t mask = ::umask(0);
        ::umask(mask);
        ok = ::fchmod(fd, 0666 & ~mask) == 0;
    }
    ok = ok && ::fsync(fd) == 0;
    ok = (::close(fd) == 0) && ok;
    ok = ok && ::rename(temp.c_str(), target.c_str()) == 0;
    if (!ok)
    {
        error = errno;
        ::unlink(temp.c_str());
    }
    return ok;
}

/// Removes what a write of target killed outright (SIGKILL, a crash, power
/// loss) left beside it: only regular files named as our temporaries are.
void RemoveLeftovers(const std::string& target)
{
    const std::size_t slash = target.rfind('/');
    const std::string dir = slash == std::string::npos ? std::string(".") : target.substr(0, slash + 1);
    const std::string base = slash == std::string::npos ? target : target.substr(slash + 1);
    DIR* pDir = ::opendir(dir.c_str());
    if (pDir == nullptr)
        return;
    const int dirFd = ::dirfd(pDir);
    while (const dirent* pEntry = ::readdir(pDir))
    {
        struct stat st
        {
        };
        if (IsTemporaryOf(pEntry->d_name, base) &&
            ::fstatat(dirFd, pEntry->d_name, &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(st.st_mode))
            ::unlinkat(dirFd, pEntry->d_name, 0);
    }
    ::closedir(pDir);
}

/// For a file whose folder takes no new file: written over, then cut to size.
/// Not one step, but the only way such a file can change at all.
bool RewriteInPlace(const std::string& target, const std::string& content, int& error)
{
    const int fd = ::open(target.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
    {
        error = errno;
        return false;
    }
    struct stat st
    {
    };
    bool ok = ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && WriteAll(fd, content) &&
              ::ftruncate(fd, static_cast<off_t>(content.size())) == 0 && ::fsync(fd) == 0;
    if (!ok)
        error = errno;
    ok = (::close(fd) == 0) && ok;
    return ok;
}
} // namespace

ReadResult ReadWholeFile(const std::string& path, std::size_t spare)
{
    ReadResult result;
    // Without O_NONBLOCK a FIFO put in the file's place would hold the open
    // until some writer came along.
    const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
    {
        result.status = errno == ENOENT ? ReadStatus::Missing : ReadStatus::Unreadable;
        result.why = ErrnoText(errno);
        return result;
    }
    result.status = ReadStatus::Unreadable;
    struct stat st
    {
    };
    if (::fstat(fd, &st) != 0)
        result.why = ErrnoText(errno);
    else if (!S_ISREG(st.st_mode))
        result.why = NotAFile(st.st_mode);
    else if (static_cast<std::uint64_t>(st.st_size) > kMaxFileBytes)
        result.why = u"it is larger than 16 MiB";
    else
        result.status = ReadStatus::Ok;
    // Sized once: growing by doubling would hold twice the file for a moment.
    if (result.status == ReadStatus::Ok)
        result.bytes.reserve(static_cast<std::size_t>(st.st_size) + spare);
    char buffer[65536];
    while (result.status == ReadStatus::Ok)
    {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n == 0)
            break;
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
        {
            result.status = ReadStatus::Unreadable;
            result.why = ErrnoText(errno);
            break;
        }
        result.bytes.append(buffer, static_cast<std::size_t>(n));
        if (result.bytes.size() > kMaxFileBytes) // grew while we read it
        {
            result.status = ReadStatus::Unreadable;
            result.why = u"it is larger than 16 MiB";
        }
    }
    ::close(fd);
    if (result.status != ReadStatus::Ok)
        result.bytes.clear();
    return result;
}

bool WriteWholeFile(const std::string& path, const std::string& content, tstring& why)
{
    const std::string target = ResolveTarget(path);
    if (target.empty())
    {
        why = u"it is a symbolic link to nowhere";
        return false;
    }
    RemoveLeftovers(target);
    struct stat st
    {
    };
    const bool bExisted = ::stat(target.c_str(), &st) == 0;
    if (bExisted && !S_ISREG(st.st_mode))
    {
        why = NotAFile(st.st_mode);
        return false;
    }
    const DeferredTermination deferred;
    int error = 0;
    if (ReplaceByRename(target, content, bExisted ? &st : nullptr, error))
        return true;
    // A folder we may not add to can still hold a file we may change.
    if (bExisted && (error == EACCES || error == EPERM || error == EROFS) &&
        RewriteInPlace(target, content, error))
        return true;
    why = ErrnoText(error);
    return false;
}

std::string FullPath(const std::string& path)
{
    // Lexical, as the Windows side's: the file need not exist yet.
    std::error_code error;
    const std::filesystem::path full = std::filesystem::absolute(path, error);
    return error || path.empty() ? path : full.lexically_normal().string();
}
} // namespace ini_io
