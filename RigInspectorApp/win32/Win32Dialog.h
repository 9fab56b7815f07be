#pragma once
// The Win32 dialog engine: builds a dialog from the shared template table in
// memory, wraps its buttons for the logic, routes clicks and timers to the
// logic, and runs the modal loop and the message pump the logic relies on.
// Both dialogs go through the same code; nothing here knows either of them.
#include <windows.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "RigInspectorApp/DialogTemplate.h"
#include "RigInspectorApp/UiToolkit.h"

class Win32ReportView;

/// The main dialog's details: a "Details" button in the free space of the
/// button row, shown once there is something to tell or a report to save,
/// that opens a plain-text window of the sections with "Save report…" and
/// "Open in browser" under it. The template's controls keep their places.
class Win32DetailsView : public IDetailsView
{
public:
    /// The button's id: outside the templates' ids, so the logic never sees it.
    static constexpr int kButtonId = 1100;
    /// The details window's own buttons.
    static constexpr int kSaveButtonId = 1101;
    static constexpr int kOpenButtonId = 1102;

    Win32DetailsView(HWND hDialog, const RECT& rect);
    ~Win32DetailsView() override;
    /// The dialog's DPI changed: the button moves to rect and takes hFont.
    void OnDialogDpiChanged(const RECT& rect, HFONT hFont);
    void SetDetails(const std::vector<DetailSection>& sections) override;
    void OfferReport(std::function<std::string()> renderBundle) override;
    /// Opens (or refreshes and raises) the text window; what a click does.
    void OpenWindow();
    /// "Save report…" (bSave) or "Open in browser", as their clicks do.
    void OnReportAction(bool bSave);
    HWND GetButton() const { return m_hButton; }
    HWND GetWindow() const { return m_hWindow; }
    /// The read-only text inside the window, or null before it was opened.
    HWND GetText() const;

private:
    static LRESULT CALLBACK WindowProc(HWND hWnd, UINT message, WPARAM wParam, LPARAM lParam);
    void UpdateShown();
    /// The text above, the two buttons right-aligned under it.
    void Layout(int width, int height);

    HWND m_hButton = nullptr;
    HWND m_hWindow = nullptr;
    HWND m_hText = nullptr;
    std::wstring m_Text;
    bool m_bHasSections = false;
    std::function<std::string()> m_RenderBundle;
    /// The window's own fonts, made for the DPI it is shown at: the buttons',
    /// and a fixed-pitch one for the text, whose tables are laid out in columns.
    HFONT m_hFont = nullptr;
    HFONT m_hTextFont = nullptr;
    UINT m_FontDpi = USER_DEFAULT_SCREEN_DPI;
};

/// The in-memory DLGTEMPLATEEX of a template: "MS Shell Dlg" at the table's
/// point size, every control but the report view (created at WM_INITDIALOG,
/// as it is not a window class the dialog manager knows). Both are centred.
std::vector<WORD> BuildDialogTemplate(const DialogTemplate& dialogTemplate);

/// A button or radio button behind the logic's IControl.
class Win32Control : public IControl
{
public:
    explicit Win32Control(HWND hWnd) : m_hWnd(hWnd) {}
    void EnableWindow(bool bEnable) override;
    bool IsWindowEnabled() const override;
    void SetCheck(int nCheck) override;
    int GetCheck() const override;

private:
    HWND m_hWnd;
};

class Win32DialogWindow : public IDialogWindow
{
public:
    Win32DialogWindow(CDialogLogic& logic, const DialogTemplate& dialogTemplate, HICON hIcon);
    ~Win32DialogWindow() override;

    /// Creates the (modeless) window; WM_INITDIALOG runs the logic's
    /// OnInitDialog before this returns. False when the window could not be made.
    bool Create(HINSTANCE hInstance);
    HWND GetHwnd() const { return m_hWnd; }
    bool IsEnded() const { return m_bEnded; }
    /// Lets the report view's control take its keys before the dialog manager.
    bool PreTranslateMessage(MSG& msg);
    int GetResult() const { return m_nResult; }

    IControl* GetDlgItem(int nId) override;
    IReportView* GetReportView() override;
    IDetailsView* GetDetailsView() override;
    void ShowWindow() override;
    void EndDialog(int nResult) override;
    void SetTimer(unsigned nIdEvent, unsigned nElapse) override;
    void KillTimer(unsigned nIdEvent) override;

private:
    static INT_PTR CALLBACK DialogProc(HWND hWnd, UINT message, WPARAM wParam, LPARAM lParam);
    INT_PTR OnMessage(UINT message, WPARAM wParam, LPARAM lParam);
    void OnInitDialog();
    bool PaintMinimised();
    /// WM_DPICHANGED: to the suggested rectangle, the template laid out again
    /// with its font made for dpi, icons of that size.
    void OnDpiChanged(UINT dpi, const RECT& suggested);
    void SetIcons(UINT dpi);

    CDialogLogic& m_Logic;
    const DialogTemplate& m_Template;
    HICON m_hIcon;
    HINSTANCE m_hInstance = nullptr;
    HWND m_hWnd = nullptr;
    /// The template's controls (the report view apart) with their windows.
    std::vector<std::pair<HWND, const DialogControlTemplate*>> m_Layout;
    /// The template's font as made at the last DPI change, and the icons for
    /// the window's DPI; the dialog's own.
    HFONT m_hFont = nullptr;
    HICON m_hBigIcon = nullptr;
    HICON m_hSmallIcon = nullptr;
    std::map<int, std::unique_ptr<Win32Control>> m_Controls;
    std::unique_ptr<Win32ReportView> m_pReportView;
    std::unique_ptr<Win32DetailsView> m_pDetailsView;
    bool m_bEnded = false;
    int m_nResult = 0;
};

/// The toolkit of the Win32 front end: the thread's own message queue.
class Win32Toolkit : public UiToolkit
{
public:
    Win32Toolkit(HINSTANCE hInstance, HICON hIcon) : m_hInstance(hInstance), m_hIcon(hIcon) {}

    int RunModal(CDialogLogic& dlg) override;
    bool PumpWaitingMessages() override;
    void PostQuitMessage(int nExitCode) override;
    std::uint32_t TimeGetTime() override;
    void Sleep(std::uint32_t nMilliseconds) override;
    bool StartProcess(const std::string& commandLine, int nShowMode) override;

    int GetExitCode() const { return m_nExitCode; }

private:
    /// Hands a message to its dialog's keyboard handling (Tab, Enter, Esc)
    /// when it belongs to one of the running dialogs, else dispatches it.
    void DispatchDialogMessage(MSG& msg);

    HINSTANCE m_hInstance;
    HICON m_hIcon;
    std::vector<Win32DialogWindow*> m_ModalStack;
    int m_nExitCode = 0;
};
