// bench_proc_meter: runs one command and measures it from the outside.
//
//   bench_proc_meter [--limit-ms N] [--first-line TEXT] [--stdout FILE]
//                    [--pid-file FILE] [--line-times FILE] -- command [args...]
//
// Prints key=value lines on its own standard output:
//   wall_ms        process start (just before exec) until it was reaped
//   first_line_ms  until the first stdout line containing TEXT (any line when
//                  TEXT is not given) was read; -1 when none came
//   peak_rss_kb    the process's own peak resident set (VmHWM), sampled every
//                  few milliseconds from /proc while it runs
//   tree_rss_kb    wait4's ru_maxrss: the largest peak of the process and of
//                  any child it reaped (a probe child, say)
//   user_ms, sys_ms  CPU time of the process and its reaped children
//   exit           exit status, or minus the signal that ended it
//   timed_out      1 when the limit ran out and the process was killed
// The command's stdout goes to FILE (or is dropped); its stderr is inherited.
// --line-times writes every stdout line prefixed by the milliseconds since
// start at which it was read: a timeline of a run for finding where time goes.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

namespace
{
using SteadyClock = std::chrono::steady_clock;

constexpr int kSampleMs = 2;

double MsBetween(SteadyClock::time_point a, SteadyClock::time_point b)
{
    return std::chrono::duration<double, std::milli>(b - a).count();
}

long ReadVmHwmKb(pid_t pid)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string key;
    while (status >> key)
    {
        if (key == "VmHWM:")
        {
            long kb = -1;
            status >> kb;
            return kb;
        }
        status.ignore(4096, '\n');
    }
    return -1;
}

int Usage()
{
    std::fprintf(stderr, "usage: bench_proc_meter [--limit-ms N] [--first-line TEXT] [--stdout FILE] "
                         "[--pid-file FILE] -- command [args...]\n");
    return 2;
}
} // namespace

int main(int argc, char** argv)
{
    long limitMs = 60000;
    std::string firstLine;
    std::string stdoutPath;
    std::string pidPath;
    std::string lineTimesPath;
    int i = 1;
    for (; i < argc; ++i)
    {
        const std::string arg = argv[i];
        if (arg == "--")
        {
            ++i;
            break;
        }
        if (i + 1 >= argc)
            return Usage();
        if (arg == "--limit-ms")
            limitMs = std::strtol(argv[++i], nullptr, 10);
        else if (arg == "--first-line")
            firstLine = argv[++i];
        else if (arg == "--stdout")
            stdoutPath = argv[++i];
        else if (arg == "--pid-file")
            pidPath = argv[++i];
        else if (arg == "--line-times")
            lineTimesPath = argv[++i];
        else
            return Usage();
    }
    if (i >= argc || limitMs <= 0)
        return Usage();

    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0)
        return 1;
    const auto start = SteadyClock::now();
    const pid_t pid = ::fork();
    if (pid < 0)
        return 1;
    if (pid == 0)
    {
        ::dup2(fds[1], STDOUT_FILENO);
        ::execvp(argv[i], argv + i);
        std::fprintf(stderr, "bench_proc_meter: cannot run %s: %s\n", argv[i], std::strerror(errno));
        ::_exit(127);
    }
    ::close(fds[1]);
    if (!pidPath.empty())
        std::ofstream(pidPath) << pid << "\n";

    std::FILE* out = stdoutPath.empty() ? nullptr : std::fopen(stdoutPath.c_str(), "wb");
    std::FILE* lineTimes = lineTimesPath.empty() ? nullptr : std::fopen(lineTimesPath.c_str(), "wb");
    const auto deadline = start + std::chrono::milliseconds(limitMs);
    double firstLineMs = -1.0;
    long peakKb = -1;
    bool bOpen = true;
    bool bTimedOut = false;
    std::string partial;
    int status = 0;
    rusage usage{};
    for (;;)
    {
        const pid_t reaped = ::wait4(pid, &status, WNOHANG, &usage);
        if (reaped == pid)
            break;
        // The last sample before exit is the process's own peak, give or
        // take what it touched in its final couple of milliseconds.
        peakKb = std::max(peakKb, ReadVmHwmKb(pid));
        const auto now = SteadyClock::now();
        if (now >= deadline)
        {
            bTimedOut = true;
            ::kill(pid, SIGKILL);
            while (::wait4(pid, &status, 0, &usage) < 0 && errno == EINTR)
            {
            }
            break;
        }
        if (!bOpen)
        {
            ::poll(nullptr, 0, kSampleMs);
            continue;
        }
        pollfd p{fds[0], POLLIN, 0};
        if (::poll(&p, 1, kSampleMs) <= 0)
            continue;
        char buffer[4096];
        const ssize_t n = ::read(fds[0], buffer, sizeof buffer);
        if (n <= 0)
        {
            if (n < 0 && errno == EINTR)
                continue;
            bOpen = false;
            continue;
        }
        if (out)
            std::fwrite(buffer, 1, static_cast<std::size_t>(n), out);
        partial.append(buffer, static_cast<std::size_t>(n));
        const double readMs = MsBetween(start, SteadyClock::now());
        for (std::size_t eol; (eol = partial.find('\n')) != std::string::npos; partial.erase(0, eol + 1))
        {
            const std::string line = partial.substr(0, eol);
            if (firstLineMs < 0 && line.find(firstLine) != std::string::npos)
                firstLineMs = readMs;
            if (lineTimes)
                std::fprintf(lineTimes, "%9.1f %s\n", readMs, line.c_str());
        }
    }
    const double wallMs = MsBetween(start, SteadyClock::now());
    // What the process wrote just before it ended; a child it left behind may
    // still hold the pipe, so take only what is there now.
    for (pollfd p{fds[0], POLLIN, 0}; bOpen && ::poll(&p, 1, 0) > 0;)
    {
        char buffer[4096];
        const ssize_t n = ::read(fds[0], buffer, sizeof buffer);
        if (n <= 0)
            break;
        if (out)
            std::fwrite(buffer, 1, static_cast<std::size_t>(n), out);
    }
    ::close(fds[0]);
    if (out)
        std::fclose(out);
    if (lineTimes)
        std::fclose(lineTimes);

    const int exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    std::printf(
        "wall_ms=%.1f\nfirst_line_ms=%.1f\npeak_rss_kb=%ld\ntree_rss_kb=%ld\nuser_ms=%.1f\nsys_ms=%.1f\n"
        "exit=%d\ntimed_out=%d\n",
        wallMs, firstLineMs, peakKb, usage.ru_maxrss,
        static_cast<double>(usage.ru_utime.tv_sec) * 1000.0 +
            static_cast<double>(usage.ru_utime.tv_usec) / 1000.0,
        static_cast<double>(usage.ru_stime.tv_sec) * 1000.0 +
            static_cast<double>(usage.ru_stime.tv_usec) / 1000.0,
        exitCode, bTimedOut ? 1 : 0);
    return 0;
}
