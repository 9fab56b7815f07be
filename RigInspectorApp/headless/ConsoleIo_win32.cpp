#include "ConsoleIo.h"

#include <fcntl.h>
#include <io.h>
#include <objbase.h>
#include <windows.h>

namespace
{
void EnableColourEscapes(DWORD stdHandle)
{
    const HANDLE hConsole = ::GetStdHandle(stdHandle);
    DWORD mode = 0;
    if (hConsole != INVALID_HANDLE_VALUE && ::GetConsoleMode(hConsole, &mode))
        ::SetConsoleMode(hConsole, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
}
} // namespace

// The report is UTF-8 and its lines end in "\n" as on Linux, so a pipe gets
// the same bytes on both systems; the console is told to show UTF-8 and,
// since Windows 10, to read the colour escapes rather than print them.
void PrepareConsole()
{
    ::_setmode(1, _O_BINARY);
    ::_setmode(2, _O_BINARY);
    ::SetConsoleOutputCP(CP_UTF8);
    EnableColourEscapes(STD_OUTPUT_HANDLE);
    EnableColourEscapes(STD_ERROR_HANDLE);
    // COM stays up on this thread for the whole run, as OLE does for the
    // desktop's: the firewall operations uninitialise before they release
    // their profile, which must not be the moment COM unloads its server.
    ::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED | COINIT_DISABLE_OLE1DDE);
}

bool IsTerminal(int fd)
{
    return ::_isatty(fd) != 0;
}

// The C runtime's duplicate has an inheritable handle; the patcher started
// later must not hold the JSON's pipe open, so the handle is made private.
int SetStandardOutputAside()
{
    const int fd = ::_dup(1);
    if (fd < 0)
        return -1;
    const auto hHandle = reinterpret_cast<HANDLE>(::_get_osfhandle(fd));
    if (hHandle != INVALID_HANDLE_VALUE)
        ::SetHandleInformation(hHandle, HANDLE_FLAG_INHERIT, 0);
    ::_setmode(fd, _O_BINARY);
    if (::_dup2(2, 1) < 0)
        return -1;
    return fd;
}
