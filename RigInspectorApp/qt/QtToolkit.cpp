#include "QtToolkit.h"

#include <QApplication>

#include "AppIcon.h"
#include "QtDialogWindow.h"
#include "RigInspectorApp/DialogTemplate.h"
#include "RigInspectorApp/ProcessLauncher.h"
#include "share/common/Assert.h"
#include "share/common/Clock.h"

void QtToolkit::ConfigureApplication()
{
    QApplication::setOrganizationName(QStringLiteral("로컬 응용 프로그램 마법사에서 생성한 응용 프로그램"));
    // The dialogs end the application through the quit message, never
    // because a window closed (the main dialog hides before "Next" opens
    // the graphic configuration).
    QApplication::setQuitOnLastWindowClosed(false);
}

QtToolkit::QtToolkit()
{
    // WM_SETICON with the big and the small icon: one multi-size icon for
    // every window of the application.
    QApplication::setWindowIcon(MakeAppIcon());
}

int QtToolkit::RunModal(CDialogLogic& dlg)
{
    const DialogTemplate* pTemplate = FindDialogTemplate(dlg.GetTemplateId());
    ZUL_ASSERT(pTemplate != nullptr);
    QtDialogWindow window(dlg, *pTemplate);
    m_ModalStack.push_back(&window);
    dlg.Attach(&window);
    dlg.OnInitDialog();
    int nResult = -1;
    // A modal loop that finds the quit message ends at once with -1, as
    // MFC's does; otherwise a dialog opened after the quit would never end.
    if (!m_bQuitPosted || window.IsEnded())
        nResult = window.RunModalLoop();
    dlg.Attach(nullptr);
    m_ModalStack.pop_back();
    return nResult;
}

bool QtToolkit::PumpWaitingMessages()
{
    // Clicks made during a step were queued meanwhile; they are handled here,
    // between steps, as the message pump handled them.
    QCoreApplication::processEvents(QEventLoop::AllEvents);
    return !m_bQuitPosted;
}

void QtToolkit::PostQuitMessage(int nExitCode)
{
    m_bQuitPosted = true;
    m_nExitCode = nExitCode;
    // Every modal loop that is still running would take the quit message
    // at its next pump and end with -1.
    for (QtDialogWindow* pWindow : m_ModalStack)
    {
        if (!pWindow->IsEnded())
            pWindow->EndDialog(-1);
    }
}

std::uint32_t QtToolkit::TimeGetTime()
{
    return zul::GetTickCount();
}

void QtToolkit::Sleep(std::uint32_t nMilliseconds)
{
    zul::Sleep(nMilliseconds);
}

bool QtToolkit::StartProcess(const std::string& commandLine, int /*nShowMode*/)
{
    // The show mode has no meaning for a program started here: it opens its
    // own windows, if any, as its window manager decides.
    return LaunchProcess(commandLine);
}
