// bench_desktop_harness: rig_inspector's own start-up (same QApplication set-up,
// same toolkit, same application object), with two marks on standard output
// for a meter outside the process, and a run that leaves by itself:
//   "main dialog shown"  the main dialog is visible and its event loop turns
//   "sequence done"      the fifth check has run; the harness then presses
//                        "Cancel", as a user would, and the process ends
// The desktop binary has neither mark nor a way to leave unattended; the
// footprint benchmark runs this harness for the figures and the real binary
// beside it as a check that the two match.
#include <QApplication>
#include <QTimer>
#include <cstdio>

#include "QtDialogWindow.h"
#include "QtToolkit.h"
#include "RigInspectorApp/Inspector.h"
#include "RigInspectorApp/InspectorApp.h"
#include "RigInspectorApp/InspectorDlg.h"

namespace
{
// A run against a server on loopback takes a few seconds; this bounds one
// whose sequence never ends (no server, say: the echo test waits out 5 s).
constexpr int kTimeLimitMs = 60000;

void Mark(const char* text)
{
    std::printf("%s\n", text);
    std::fflush(stdout);
}
} // namespace

int main(int argc, char* argv[])
{
    const tstring commandLine = CommandLineText(argc, argv);
    QApplication application(argc, argv);
    QtToolkit::ConfigureApplication();

    QtToolkit toolkit;
    bool bShown = false;
    bool bDone = false;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout,
                     [&]
                     {
                         const QtDialogWindow* pWindow = toolkit.GetActiveDialog();
                         if (!bShown && pWindow != nullptr && pWindow->isVisible() &&
                             pWindow->GetTemplateId() == CInspectorDlg::kTemplateId)
                         {
                             bShown = true;
                             Mark("main dialog shown");
                         }
                         auto* pDlg = dynamic_cast<CInspectorDlg*>(g_inspector.m_pDlg);
                         if (bShown && !bDone && pDlg != nullptr && pDlg->IsSequenceDone())
                         {
                             bDone = true;
                             Mark("sequence done");
                             // From a call of its own: the press ends the loop
                             // this timer is called from.
                             QTimer::singleShot(0, [pDlg] { pDlg->OnCommand(IDCANCEL); });
                         }
                     });
    poll.start(1);
    QTimer::singleShot(kTimeLimitMs, [&toolkit] { toolkit.PostQuitMessage(1); });

    SetToolkit(&toolkit);
    theApp.InitInstance(commandLine);
    SetToolkit(nullptr);
    return toolkit.GetExitCode();
}
