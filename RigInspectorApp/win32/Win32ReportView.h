#pragma once
// The report view of the main dialog (control 1000): the WebBrowser control
// where it can show HTML, otherwise a RichEdit control showing the same report
// as rich text (Wine without its HTML engine, a Windows without MSHTML).
#include <windows.h>

#include <functional>
#include <memory>

#include "RigInspectorApp/UiToolkit.h"

class Win32ReportView : public IReportView
{
public:
    /// WM_NOTIFY of the dialog; true when the view handled it.
    virtual bool OnNotify(const NMHDR* pHeader) = 0;
    /// A queued message, before the dialog manager sees it; true when the
    /// view's control took it (its own keys: copy, arrows, Page Down).
    virtual bool PreTranslateMessage(MSG& msg) = 0;
    /// The dialog's DPI changed: the view moves to rect (pixels of the
    /// dialog's client area) and draws its content for dpi.
    virtual void SetBounds(const RECT& rect, UINT dpi) = 0;
};

enum class ReportViewKind
{
    WebBrowser,
    RichEdit
};

/// What creating the WebBrowser control and an HTML document gave.
struct ReportViewProbe
{
    HRESULT hrBrowser;
    HRESULT hrHtmlDocument;
};

/// The WebBrowser control only shows the report when it can also make the
/// HTML document the report is loaded into: without it, it stays blank.
ReportViewKind ChooseReportView(const ReportViewProbe& probe);

/// Creates both COM objects once and releases them.
ReportViewProbe ProbeReportView();

/// The view as a child window of the dialog, at rect (pixels of its client area).
std::unique_ptr<Win32ReportView> CreateReportView(HWND hDialog, int nId, const RECT& rect);
