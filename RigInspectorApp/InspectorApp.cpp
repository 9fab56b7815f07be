#include "InspectorApp.h"

#include <string_view>

#include "InspectorDlg.h"
#include "share/common/StringUtil.h"
#include "share/socket/Socket.h"

CInspectorApp theApp;

bool IsPatcherSwitch(const tstring& commandLine)
{
    return commandLine == std::u16string_view(u"patcher");
}

tstring CommandLineText(int argc, const char* const argv[])
{
    tstring text;
    for (int i = 1; i < argc; ++i)
    {
        if (i > 1)
            text += u' ';
        text += zul::ToWide(argv[i]);
    }
    return text;
}

bool CInspectorApp::InitInstance(const tstring& commandLine)
{
    // Common controls, the registry key and the ActiveX control container have
    // no counterpart here: the toolkit provides its widgets itself.
    m_bRunPatcher = IsPatcherSwitch(commandLine);
    // The analyzer goes on without sockets: the network checks then report
    // their own failures.
    zul::socket::Startup();
    CInspectorDlg dlg;
    dlg.DoModal();
    return false;
}
