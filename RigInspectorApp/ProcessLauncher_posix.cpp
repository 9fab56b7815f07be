#include "ProcessLauncher.h"

#include <spawn.h>
#include <sys/types.h>
#include <sys/wait.h>

#include <cerrno>
#include <sstream>
#include <system_error>
#include <thread>
#include <vector>

extern char** environ;

bool LaunchProcess(const std::string& commandLine)
{
    std::vector<std::string> words;
    std::istringstream in(commandLine);
    for (std::string word; in >> word;)
        words.push_back(word);
    if (words.empty())
        return false;

    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);

    pid_t pid = 0;
    const bool bSearchPath = words.front().find('/') == std::string::npos;
    const int error = bSearchPath ? posix_spawnp(&pid, argv[0], nullptr, nullptr, argv.data(), environ)
                                  : posix_spawn(&pid, argv[0], nullptr, nullptr, argv.data(), environ);
    if (error != 0)
        return false;

    // The caller never waits; a detached waiter collects the exit status so no
    // zombie is left. Should the process end first, init adopts and reaps it.
    try
    {
        std::thread(
            [pid]
            {
                while (waitpid(pid, nullptr, 0) == -1 && errno == EINTR)
                {
                }
            })
            .detach();
    }
    catch (const std::system_error&)
    {
        // No thread to spare: the child still runs, and is reaped at our exit.
    }
    return true;
}
