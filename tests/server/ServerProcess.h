#pragma once
// Runs the real rig_test_server as a child process and reads its output.
#include <chrono>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

class ServerProcess
{
public:
    using Millis = std::chrono::milliseconds;

    /// Starts the server with the given arguments; stdout and stderr are piped.
    explicit ServerProcess(const std::vector<std::string>& args);
    /// Kills a server that is still running.
    ~ServerProcess();
    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;

    /// The first stdout line containing needle, waiting up to timeout for it.
    std::optional<std::string> WaitForLine(const std::string& needle, Millis timeout = Millis(10000));
    bool WaitUntilReady() { return WaitForLine("rig_test_server listening").has_value(); }

    /// Sends a signal; then WaitForExit.
    void Signal(int signal);
    /// The exit status, or -1 when the server did not exit in time or died by
    /// a signal.
    int WaitForExit(Millis timeout = Millis(10000));

    const std::string& GetStderr() const { return m_ErrText; }

private:
    bool Pump(std::chrono::steady_clock::time_point deadline);

    pid_t m_Pid = -1;
    int m_PidFd = -1;
    int m_StdoutFd = -1;
    int m_StderrFd = -1;
    bool m_bExited = false;
    int m_ExitStatus = -1;
    std::string m_Partial;
    std::vector<std::string> m_Lines;
    std::string m_ErrText;
};
