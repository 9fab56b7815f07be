#pragma once
// The small toolkit interface the dialogs' logic reaches the GUI through.
// It is written from what the dialogs need of a window system (the parts of
// MFC, Win32 and the WebBrowser control they use) and nothing more, so that
// the Qt front end, the headless front end and the tests' fakes each
// implement it thinly while every algorithm stays in the logic classes.
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "share/common/TString.h"

// Dialog results and the standard button ids. The Win32 front end sees
// <windows.h>'s macros of the same values instead.
#ifndef IDOK
constexpr int IDOK = 1;
constexpr int IDCANCEL = 2;
#endif

/// A button or radio button of a dialog, found by its control id.
class IControl
{
public:
    virtual ~IControl() = default;
    virtual void EnableWindow(bool bEnable) = 0;
    virtual bool IsWindowEnabled() const = 0;
    /// BM_SETCHECK: 1 checked, 0 unchecked.
    virtual void SetCheck(int nCheck) = 0;
    /// BM_GETCHECK: 1 checked, 0 unchecked.
    virtual int GetCheck() const = 0;
};

/// The report view (the WebBrowser control, id 1000 of the main dialog).
class IReportView
{
public:
    virtual ~IReportView() = default;
    /// Starts a navigation; the view has a document only once it completes.
    virtual void Navigate(const tstring& url) = 0;
    /// The Document property is not null.
    virtual bool HasDocument() const = 0;
    /// Replaces the shown document (InitNew, then Load) with the stream: the
    /// document's UTF-16 code units, then one zero unit, no byte-order mark;
    /// nBytes is 2 x length + 2. False when the view could not take it.
    virtual bool LoadDocument(const char16_t* pStream, std::size_t nBytes) = 0;
    /// Scrolls the shown document to its bottom (scrollTop = scrollHeight).
    virtual bool ScrollToEnd() = 0;
};

/// One titled block of the details view: plain text lines, one a line.
struct DetailSection
{
    tstring title;
    std::vector<tstring> lines;
};

/// What the player can open beside the report without it changing: the
/// diagnostics and any further measurements. A front end shows it its own way
/// (a "Details" link and a text window on Qt) and must not move or resize the
/// template's controls to do so.
class IDetailsView
{
public:
    virtual ~IDetailsView() = default;
    /// Replaces everything shown; no sections means nothing to show.
    virtual void SetDetails(const std::vector<DetailSection>& sections) = 0;
    /// Once the checks have run: the view offers "Save report…" and "Open in
    /// browser" (ReportActions), which write what renderBundle returns then.
    virtual void OfferReport(std::function<std::string()> renderBundle) { (void)renderBundle; }
};

/// The window of a dialog made from its template.
class IDialogWindow
{
public:
    virtual ~IDialogWindow() = default;
    /// The control with that id, or null.
    virtual IControl* GetDlgItem(int nId) = 0;
    /// The report view of the main dialog, or null in a dialog without one.
    virtual IReportView* GetReportView() = 0;
    /// The details view of the main dialog, or null where the front end has
    /// none (the terminal prints the diagnostics itself).
    virtual IDetailsView* GetDetailsView() { return nullptr; }
    virtual void ShowWindow() = 0;
    /// Ends the modal run with nResult once control returns to it; the window
    /// and its controls stay readable until then.
    virtual void EndDialog(int nResult) = 0;
    /// A timer that calls the dialog's OnTimer(nIdEvent) every nElapse ms from
    /// the modal run's loop, until KillTimer.
    virtual void SetTimer(unsigned nIdEvent, unsigned nElapse) = 0;
    virtual void KillTimer(unsigned nIdEvent) = 0;
};

class CDialogLogic;

/// The application-wide services of the window system.
class UiToolkit
{
public:
    virtual ~UiToolkit() = default;
    /// Creates the window of dlg's template, attaches it (dlg.Attach), calls
    /// dlg.OnInitDialog(), routes clicks to dlg.OnCommand(id) and timers to
    /// dlg.OnTimer(id), and returns the result given to EndDialog. Esc, the
    /// close box and the window manager's close arrive as OnCommand(IDCANCEL).
    virtual int RunModal(CDialogLogic& dlg) = 0;
    /// Handles every queued input event (clicks made during a step arrive
    /// here). False once the quit message has been taken from the queue.
    virtual bool PumpWaitingMessages() = 0;
    /// Posts the quit message with an exit code.
    virtual void PostQuitMessage(int nExitCode) = 0;
    /// The millisecond clock (timeGetTime), 32-bit, wrapping.
    virtual std::uint32_t TimeGetTime() = 0;
    virtual void Sleep(std::uint32_t nMilliseconds) = 0;
    /// Starts a program (WinExec) without waiting for it; true when started.
    virtual bool StartProcess(const std::string& commandLine, int nShowMode) = 0;
};

/// The toolkit the running front end installed (the Qt one, the headless one,
/// or a test's fake). Must be set before any dialog runs.
UiToolkit& GetToolkit();
void SetToolkit(UiToolkit* pToolkit);

/// The CDialog stand-in that both dialogs' logic derives from.
class CDialogLogic
{
public:
    explicit CDialogLogic(int nTemplateId) : m_nTemplateId(nTemplateId) {}
    virtual ~CDialogLogic() = default;

    int GetTemplateId() const { return m_nTemplateId; }
    /// Runs the dialog modally through the installed toolkit.
    int DoModal() { return GetToolkit().RunModal(*this); }

    /// Called by the toolkit before OnInitDialog; null after the run.
    void Attach(IDialogWindow* pWnd) { m_pWnd = pWnd; }
    IDialogWindow* GetWindow() const { return m_pWnd; }
    IControl* GetDlgItem(int nId) const { return m_pWnd ? m_pWnd->GetDlgItem(nId) : nullptr; }

    virtual bool OnInitDialog() { return true; }
    virtual void OnTimer(unsigned /*nIdEvent*/) {}
    /// BN_CLICKED of a button (message map).
    virtual void OnCommand(int nId) = 0;

protected:
    void OnOK()
    {
        if (m_pWnd)
            m_pWnd->EndDialog(IDOK);
    }
    void OnCancel()
    {
        if (m_pWnd)
            m_pWnd->EndDialog(IDCANCEL);
    }

    IDialogWindow* m_pWnd = nullptr;

private:
    int m_nTemplateId;
};
