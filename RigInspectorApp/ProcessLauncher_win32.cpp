#include "ProcessLauncher.h"

#include <windows.h>

// WinExec searches the program as CreateProcess does and returns a value above
// 31 once the program runs; nothing is left to reap.
bool LaunchProcess(const std::string& commandLine)
{
    if (commandLine.find_first_not_of(" \t") == std::string::npos)
        return false;
    return ::WinExec(commandLine.c_str(), SW_SHOWNORMAL) > 31;
}
