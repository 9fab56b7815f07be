// rig_inspector.exe: the analyzer's native Windows front end.
#include <windows.h>

#include <commctrl.h>
#include <ole2.h>

#include "RigInspectorApp/DesktopRun.h"
#include "RigInspectorApp/InspectorApp.h"
#include "Win32Dialog.h"
#include "resource.h"

namespace
{
/// The text after the program name and the blanks that follow it, as the
/// framework hands it to the application.
tstring CommandLineAfterProgram()
{
    const wchar_t* p = ::GetCommandLineW();
    if (*p == L'"')
    {
        ++p;
        while (*p != 0 && *p != L'"')
            ++p;
        if (*p == L'"')
            ++p;
    }
    else
    {
        while (*p > L' ')
            ++p;
    }
    while (*p == L' ' || *p == L'\t')
        ++p;
    return tstring(reinterpret_cast<const char16_t*>(p));
}
} // namespace

int WINAPI wWinMain(HINSTANCE hInstance, HINSTANCE, LPWSTR, int)
{
    INITCOMMONCONTROLSEX controls{sizeof controls, ICC_STANDARD_CLASSES | ICC_WIN95_CLASSES};
    ::InitCommonControlsEx(&controls);
    // The report's WebBrowser control is an in-place ActiveX control: it needs
    // OLE, not only COM, on this thread.
    const HRESULT hrOle = ::OleInitialize(nullptr);

    const HICON hIcon = ::LoadIconW(hInstance, MAKEINTRESOURCEW(IDR_MAINFRAME));
    Win32Toolkit toolkit(hInstance, hIcon);
    SetToolkit(&toolkit);
    theApp.InitInstance(CommandLineAfterProgram());
    RecordDesktopRun();
    SetToolkit(nullptr);

    if (SUCCEEDED(hrOle))
        ::OleUninitialize();
    return toolkit.GetExitCode();
}
