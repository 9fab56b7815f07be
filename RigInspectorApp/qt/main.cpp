// rig_inspector: the analyzer's desktop front end on Qt Widgets.
//
// Where the Windows-only pieces of the application's start-up went:
// - InitCommonControls: Qt draws its own widgets; there is nothing to load.
// - AfxEnableControlContainer: the report is a QTextBrowser, not an ActiveX
//   control, so no control container is needed.
// - SetRegistryKey: becomes the organisation name, which is where QSettings
//   would keep settings; like the original, the analyzer stores nothing there.
// - The Help command route: neither dialog has a Help button or F1 handling,
//   and Qt routes no Help command by default, so there is nothing to route.
// - The icon painted into the minimised window and the drag icon
//   (WM_PAINT while iconic, WM_QUERYDRAGICON): the window manager draws
//   minimised windows from the window icon here. The centring formula, which the
//   Win32 front end uses, is in RigInspectorApp/MinimisedIcon.h.
#include <QApplication>

#include "QtToolkit.h"
#include "RigInspectorApp/DesktopRun.h"
#include "RigInspectorApp/InspectorApp.h"

int main(int argc, char* argv[])
{
    // Read the switch from the raw arguments: QApplication removes its own
    // options (-reverse, -style, ...) from argv, and "rig_inspector -reverse
    // patcher" must not look like a start with "patcher" alone.
    const tstring commandLine = CommandLineText(argc, argv);

    QApplication application(argc, argv);
    QtToolkit::ConfigureApplication();

    QtToolkit toolkit;
    SetToolkit(&toolkit);
    theApp.InitInstance(commandLine);
    RecordDesktopRun();
    SetToolkit(nullptr);
    return toolkit.GetExitCode();
}
