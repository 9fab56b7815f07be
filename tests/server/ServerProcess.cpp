#include "ServerProcess.h"

#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{
void ReadAvailable(int& fd, std::string& into)
{
    char buffer[4096];
    const ssize_t n = read(fd, buffer, sizeof buffer);
    if (n > 0)
        into.append(buffer, static_cast<std::size_t>(n));
    else if (n == 0)
    {
        close(fd);
        fd = -1;
    }
}
} // namespace

ServerProcess::ServerProcess(const std::vector<std::string>& args)
{
    int out[2];
    int err[2];
    if (pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0)
        return;
    std::vector<std::string> argvText{RIG_TEST_SERVER_PATH};
    argvText.insert(argvText.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (auto& a : argvText)
        argv.push_back(a.data());
    argv.push_back(nullptr);

    m_Pid = fork();
    if (m_Pid == 0)
    {
        dup2(out[1], STDOUT_FILENO);
        dup2(err[1], STDERR_FILENO);
        execv(argv[0], argv.data());
        _exit(127);
    }
    close(out[1]);
    close(err[1]);
    m_StdoutFd = out[0];
    m_StderrFd = err[0];
    m_PidFd = m_Pid > 0 ? static_cast<int>(syscall(SYS_pidfd_open, m_Pid, 0)) : -1;
}

ServerProcess::~ServerProcess()
{
    if (m_Pid > 0 && !m_bExited)
    {
        kill(m_Pid, SIGKILL);
        waitpid(m_Pid, nullptr, 0);
    }
    for (int fd : {m_StdoutFd, m_StderrFd, m_PidFd})
        if (fd >= 0)
            close(fd);
}

bool ServerProcess::Pump(std::chrono::steady_clock::time_point deadline)
{
    const auto left = std::chrono::duration_cast<Millis>(deadline - std::chrono::steady_clock::now()).count();
    if (left <= 0)
        return false;
    pollfd fds[3] = {{m_StdoutFd, POLLIN, 0}, {m_StderrFd, POLLIN, 0}, {m_bExited ? -1 : m_PidFd, POLLIN, 0}};
    if (poll(fds, 3, static_cast<int>(left)) <= 0)
        return false;
    if (fds[0].revents)
        ReadAvailable(m_StdoutFd, m_Partial);
    if (fds[1].revents)
        ReadAvailable(m_StderrFd, m_ErrText);
    for (std::size_t nl; (nl = m_Partial.find('\n')) != std::string::npos;)
    {
        m_Lines.push_back(m_Partial.substr(0, nl));
        m_Partial.erase(0, nl + 1);
    }
    if (fds[2].revents && !m_bExited)
    {
        int status = 0;
        if (waitpid(m_Pid, &status, WNOHANG) == m_Pid)
        {
            m_bExited = true;
            m_ExitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        }
    }
    return true;
}

std::optional<std::string> ServerProcess::WaitForLine(const std::string& needle, Millis timeout)
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    do
    {
        for (const auto& line : m_Lines)
            if (line.find(needle) != std::string::npos)
                return line;
        if (m_StdoutFd < 0)
            return std::nullopt;
    } while (Pump(deadline));
    return std::nullopt;
}

void ServerProcess::Signal(int signal)
{
    if (m_Pid > 0 && !m_bExited)
        kill(m_Pid, signal);
}

int ServerProcess::WaitForExit(Millis timeout)
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    // Exited and both pipes drained, so stderr and the last lines are complete.
    while (!(m_bExited && m_StdoutFd < 0 && m_StderrFd < 0) && Pump(deadline))
    {
    }
    return m_bExited ? m_ExitStatus : -1;
}
