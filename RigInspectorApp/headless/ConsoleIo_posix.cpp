#include "ConsoleIo.h"

#include <fcntl.h>
#include <unistd.h>

void PrepareConsole() {}

bool IsTerminal(int fd)
{
    return ::isatty(fd) == 1;
}

int SetStandardOutputAside()
{
    const int fd = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    if (fd < 0 || ::dup2(STDERR_FILENO, STDOUT_FILENO) < 0)
        return -1;
    return fd;
}
