#pragma once
// The window-system services of the Qt front end: modal dialogs from their
// templates, the message pump of the check sequence, the quit message, time
// and process start.
#include <vector>

#include "RigInspectorApp/UiToolkit.h"

class QtDialogWindow;

class QtToolkit : public UiToolkit
{
public:
    /// The application-wide settings rig_inspector starts with; call once
    /// the QApplication exists, before the first dialog.
    static void ConfigureApplication();

    /// Needs a QApplication; sets the application icon for every window.
    QtToolkit();

    int RunModal(CDialogLogic& dlg) override;
    bool PumpWaitingMessages() override;
    void PostQuitMessage(int nExitCode) override;
    std::uint32_t TimeGetTime() override;
    void Sleep(std::uint32_t nMilliseconds) override;
    bool StartProcess(const std::string& commandLine, int nShowMode) override;

    bool IsQuitPosted() const { return m_bQuitPosted; }
    /// The exit code of the quit message, the process's exit code.
    int GetExitCode() const { return m_nExitCode; }
    /// The innermost dialog running modally, or null (for tests).
    QtDialogWindow* GetActiveDialog() const { return m_ModalStack.empty() ? nullptr : m_ModalStack.back(); }

private:
    bool m_bQuitPosted = false;
    int m_nExitCode = 0;
    /// The dialogs in RunModal, outermost first.
    std::vector<QtDialogWindow*> m_ModalStack;
};
