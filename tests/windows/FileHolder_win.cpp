// Holds a file open from another process, as a game or an editor would, for
// the options file's replace tests:
//   file_holder PATH ACCESS SHARE READY_EVENT RELEASE_EVENT
// ACCESS is "r" or "rw"; SHARE any of "r", "w", "d" (or "-" for none). It
// signals READY_EVENT once the file is open and keeps it open until
// RELEASE_EVENT is set (at most 60 s). Exit 0, or 2 when the open failed.
#include <windows.h>

#include <cwchar>

int wmain(int argc, wchar_t** argv)
{
    if (argc != 6)
        return 3;
    const DWORD access = std::wcscmp(argv[2], L"rw") == 0 ? GENERIC_READ | GENERIC_WRITE : GENERIC_READ;
    DWORD share = 0;
    for (const wchar_t* p = argv[3]; *p != 0; ++p)
        share |= *p == L'r'   ? FILE_SHARE_READ
                 : *p == L'w' ? FILE_SHARE_WRITE
                 : *p == L'd' ? FILE_SHARE_DELETE
                              : 0;
    const HANDLE ready = ::OpenEventW(EVENT_MODIFY_STATE, FALSE, argv[4]);
    const HANDLE release = ::OpenEventW(SYNCHRONIZE, FALSE, argv[5]);
    if (ready == nullptr || release == nullptr)
        return 3;
    const HANDLE file =
        ::CreateFileW(argv[1], access, share, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    ::SetEvent(ready);
    if (file == INVALID_HANDLE_VALUE)
        return 2;
    ::WaitForSingleObject(release, 60000);
    ::CloseHandle(file);
    return 0;
}
