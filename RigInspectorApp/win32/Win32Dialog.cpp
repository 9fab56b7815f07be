#include "Win32Dialog.h"

#include <commdlg.h>
#include <mmsystem.h>
#include <shellapi.h>

#include <filesystem>
#include <optional>

#include "RigInspectorApp/MinimisedIcon.h"
#include "RigInspectorApp/ReportActions.h"
#include "Win32Dpi.h"
#include "Win32ReportView.h"
#include "resource.h"
#include "share/common/Assert.h"

namespace
{
constexpr WORD kButtonClass = 0x0080;
constexpr WORD kStaticClass = 0x0082;

class TemplateWriter
{
public:
    void Word(WORD value) { m_Words.push_back(value); }
    void DWord(DWORD value)
    {
        Word(LOWORD(value));
        Word(HIWORD(value));
    }
    void Text(const char16_t* text)
    {
        for (; *text != 0; ++text)
            Word(*text);
        Word(0);
    }
    void AlignDWord()
    {
        if (m_Words.size() % 2 != 0)
            Word(0);
    }
    std::vector<WORD> Take() { return std::move(m_Words); }

private:
    std::vector<WORD> m_Words;
};

DWORD ControlStyle(const DialogControlTemplate& control, WORD& windowClass)
{
    using Kind = DialogControlTemplate::Kind;
    windowClass = kButtonClass;
    const DWORD base = WS_CHILD | WS_VISIBLE;
    switch (control.kind)
    {
    case Kind::PushButton:
        return base | WS_TABSTOP | BS_PUSHBUTTON;
    case Kind::DefPushButton:
        return base | WS_TABSTOP | BS_DEFPUSHBUTTON;
    case Kind::AutoRadioButton:
        // The first button of each pair starts a group, so each High/Low pair
        // is a two-way choice of its own.
        return base | BS_AUTORADIOBUTTON | (control.bGroup ? WS_GROUP | WS_TABSTOP : 0);
    case Kind::GroupBox:
        return base | BS_GROUPBOX;
    case Kind::StaticText:
        windowClass = kStaticClass;
        return base | WS_GROUP | SS_LEFT;
    case Kind::ReportView:
        break;
    }
    return 0;
}
} // namespace

std::vector<WORD> BuildDialogTemplate(const DialogTemplate& t)
{
    // DS_SETFONT alone: DS_SHELLFONT adds DS_FIXEDSYS, which swaps "MS Shell
    // Dlg" for the shell's own font and so changes every dialog unit.
    DWORD style = WS_POPUP | WS_CAPTION | DS_MODALFRAME | DS_SETFONT | DS_CENTER;
    if (t.bCloseBox)
        style |= WS_SYSMENU;
    if (t.bMainWindow)
        style |= WS_VISIBLE;

    WORD nItems = 0;
    for (const DialogControlTemplate& control : t.controls)
        nItems += control.kind == DialogControlTemplate::Kind::ReportView ? 0 : 1;

    TemplateWriter w;
    w.Word(1);      // dlgVer
    w.Word(0xFFFF); // signature: DLGTEMPLATEEX
    w.DWord(0);     // helpID
    w.DWord(t.bMainWindow ? WS_EX_APPWINDOW : 0);
    w.DWord(style);
    w.Word(nItems);
    w.Word(0);
    w.Word(0);
    w.Word(static_cast<WORD>(t.cx));
    w.Word(static_cast<WORD>(t.cy));
    w.Word(0); // no menu
    w.Word(0); // the dialog class
    w.Text(t.caption);
    w.Word(static_cast<WORD>(t.nFontPointSize));
    w.Word(FW_NORMAL);
    w.Word(MAKEWORD(FALSE, DEFAULT_CHARSET)); // italic, charset
    w.Text(u"MS Shell Dlg");

    for (const DialogControlTemplate& control : t.controls)
    {
        if (control.kind == DialogControlTemplate::Kind::ReportView)
            continue;
        WORD windowClass = 0;
        const DWORD controlStyle = ControlStyle(control, windowClass);
        w.AlignDWord();
        w.DWord(0); // helpID
        w.DWord(0); // exStyle
        w.DWord(controlStyle);
        w.Word(static_cast<WORD>(control.x));
        w.Word(static_cast<WORD>(control.y));
        w.Word(static_cast<WORD>(control.cx));
        w.Word(static_cast<WORD>(control.cy));
        w.DWord(static_cast<DWORD>(control.nId));
        w.Word(0xFFFF);
        w.Word(windowClass);
        w.Text(control.text);
        w.Word(0); // no creation data
    }
    return w.Take();
}

void Win32Control::EnableWindow(bool bEnable)
{
    ::EnableWindow(m_hWnd, bEnable ? TRUE : FALSE);
}

bool Win32Control::IsWindowEnabled() const
{
    return ::IsWindowEnabled(m_hWnd) != FALSE;
}

void Win32Control::SetCheck(int nCheck)
{
    ::SendMessageW(m_hWnd, BM_SETCHECK, static_cast<WPARAM>(nCheck), 0);
}

int Win32Control::GetCheck() const
{
    return static_cast<int>(::SendMessageW(m_hWnd, BM_GETCHECK, 0, 0));
}

Win32DialogWindow::Win32DialogWindow(CDialogLogic& logic, const DialogTemplate& dialogTemplate, HICON hIcon)
    : m_Logic(logic), m_Template(dialogTemplate), m_hIcon(hIcon)
{
}

Win32DialogWindow::~Win32DialogWindow()
{
    if (m_hWnd != nullptr)
        ::DestroyWindow(m_hWnd);
    if (m_hFont != nullptr)
        ::DeleteObject(m_hFont);
    for (HICON hIcon : {m_hBigIcon, m_hSmallIcon})
        if (hIcon != nullptr)
            ::DestroyIcon(hIcon);
}

bool Win32DialogWindow::Create(HINSTANCE hInstance)
{
    m_hInstance = hInstance;
    const std::vector<WORD> bytes = BuildDialogTemplate(m_Template);
    const HWND hWnd = ::CreateDialogIndirectParamW(hInstance, reinterpret_cast<LPCDLGTEMPLATEW>(bytes.data()),
                                                   nullptr, &DialogProc, reinterpret_cast<LPARAM>(this));
    return hWnd != nullptr;
}

INT_PTR CALLBACK Win32DialogWindow::DialogProc(HWND hWnd, UINT message, WPARAM wParam, LPARAM lParam)
{
    auto* pThis = reinterpret_cast<Win32DialogWindow*>(::GetWindowLongPtrW(hWnd, DWLP_USER));
    if (message == WM_INITDIALOG)
    {
        pThis = reinterpret_cast<Win32DialogWindow*>(lParam);
        ::SetWindowLongPtrW(hWnd, DWLP_USER, lParam);
        pThis->m_hWnd = hWnd;
    }
    return pThis != nullptr ? pThis->OnMessage(message, wParam, lParam) : FALSE;
}

INT_PTR Win32DialogWindow::OnMessage(UINT message, WPARAM wParam, LPARAM lParam)
{
    switch (message)
    {
    case WM_INITDIALOG:
        OnInitDialog();
        return TRUE; // focus left to the system
    case WM_COMMAND:
        // Clicks queued before the dialog ended would reach a logic that has
        // already left; the hidden window takes no more commands. The close
        // box and Esc arrive here as IDCANCEL, through the dialog manager.
        if (HIWORD(wParam) == BN_CLICKED && LOWORD(wParam) == Win32DetailsView::kButtonId && m_pDetailsView)
            m_pDetailsView->OpenWindow();
        else if (HIWORD(wParam) == BN_CLICKED && !m_bEnded)
            m_Logic.OnCommand(LOWORD(wParam));
        return TRUE;
    case WM_TIMER:
        m_Logic.OnTimer(static_cast<unsigned>(wParam));
        return TRUE;
    case WM_NOTIFY:
        if (m_pReportView && m_pReportView->OnNotify(reinterpret_cast<const NMHDR*>(lParam)))
            return TRUE;
        return FALSE;
    case WM_PAINT:
        return PaintMinimised() ? TRUE : FALSE;
    case WM_QUERYDRAGICON:
        return reinterpret_cast<INT_PTR>(m_hBigIcon != nullptr ? m_hBigIcon : m_hIcon);
    case WM_DPICHANGED:
        OnDpiChanged(HIWORD(wParam), *reinterpret_cast<const RECT*>(lParam));
        return TRUE;
    case WM_DESTROY:
        m_pReportView.reset();
        m_pDetailsView.reset();
        return FALSE;
    default:
        return FALSE;
    }
}

void Win32DialogWindow::OnInitDialog()
{
    TakeOverDialogDpiScaling(m_hWnd);
    if (m_hIcon != nullptr)
        SetIcons(WindowDpi(m_hWnd));
    // The dialog manager puts each control last, so the children come in
    // the template's order; the ones made here follow them.
    HWND hChild = ::GetWindow(m_hWnd, GW_CHILD);
    for (const DialogControlTemplate& control : m_Template.controls)
    {
        if (control.kind == DialogControlTemplate::Kind::ReportView || hChild == nullptr)
            continue;
        m_Layout.emplace_back(hChild, &control);
        hChild = ::GetWindow(hChild, GW_HWNDNEXT);
    }
    for (const DialogControlTemplate& control : m_Template.controls)
    {
        if (control.kind == DialogControlTemplate::Kind::ReportView)
        {
            // Position and size convert on their own, as for the template's
            // controls, so a width never depends on its position.
            RECT units{control.x, control.y, control.cx, control.cy};
            ::MapDialogRect(m_hWnd, &units);
            const RECT rect{units.left, units.top, units.left + units.right, units.top + units.bottom};
            m_pReportView = CreateReportView(m_hWnd, control.nId, rect);
            // The details button sits in the button row's free stretch, from
            // just past the left button to just before "Next" (dialog units
            // 90 to 134 under the view).
            RECT row{90, control.y + control.cy + 5, 44, 16};
            ::MapDialogRect(m_hWnd, &row);
            m_pDetailsView = std::make_unique<Win32DetailsView>(
                m_hWnd, RECT{row.left, row.top, row.left + row.right, row.top + row.bottom});
        }
        else if (control.nId != IDC_STATIC)
        {
            if (const HWND hControl = ::GetDlgItem(m_hWnd, control.nId))
                m_Controls[control.nId] = std::make_unique<Win32Control>(hControl);
        }
    }
    m_Logic.Attach(this);
    m_Logic.OnInitDialog();
}

void Win32DialogWindow::SetIcons(UINT dpi)
{
    // Each at the size the system draws it at this DPI, not one scaled.
    const HICON hBig = LoadIconForDpi(m_hInstance, IDR_MAINFRAME, false, dpi);
    const HICON hSmall = LoadIconForDpi(m_hInstance, IDR_MAINFRAME, true, dpi);
    ::SendMessageW(m_hWnd, WM_SETICON, ICON_BIG, reinterpret_cast<LPARAM>(hBig != nullptr ? hBig : m_hIcon));
    ::SendMessageW(m_hWnd, WM_SETICON, ICON_SMALL,
                   reinterpret_cast<LPARAM>(hSmall != nullptr ? hSmall : m_hIcon));
    for (HICON hOld : {m_hBigIcon, m_hSmallIcon})
        if (hOld != nullptr)
            ::DestroyIcon(hOld);
    m_hBigIcon = hBig;
    m_hSmallIcon = hSmall;
}

void Win32DialogWindow::OnDpiChanged(UINT dpi, const RECT& suggested)
{
    const HFONT hFont = CreateDialogFont(m_Template.nFontPointSize, dpi);
    if (hFont == nullptr)
        return;
    const SIZE units = DialogBaseUnits(hFont);
    ::SetWindowPos(m_hWnd, nullptr, suggested.left, suggested.top, suggested.right - suggested.left,
                   suggested.bottom - suggested.top, SWP_NOZORDER | SWP_NOACTIVATE);
    for (const auto& [hControl, pControl] : m_Layout)
    {
        const RECT rect = DialogRectToPixels(pControl->x, pControl->y, pControl->cx, pControl->cy, units);
        ::MoveWindow(hControl, rect.left, rect.top, rect.right - rect.left, rect.bottom - rect.top, TRUE);
        ::SendMessageW(hControl, WM_SETFONT, reinterpret_cast<WPARAM>(hFont), TRUE);
    }
    for (const DialogControlTemplate& control : m_Template.controls)
    {
        if (control.kind != DialogControlTemplate::Kind::ReportView)
            continue;
        if (m_pReportView)
            m_pReportView->SetBounds(DialogRectToPixels(control.x, control.y, control.cx, control.cy, units),
                                     dpi);
        if (m_pDetailsView)
            m_pDetailsView->OnDialogDpiChanged(
                DialogRectToPixels(90, control.y + control.cy + 5, 44, 16, units), hFont);
    }
    // The controls hold the new font now; the old one is no longer drawn with.
    if (m_hFont != nullptr)
        ::DeleteObject(m_hFont);
    m_hFont = hFont;
    if (m_hIcon != nullptr)
        SetIcons(dpi);
    ::InvalidateRect(m_hWnd, nullptr, TRUE);
}

bool Win32DialogWindow::PaintMinimised()
{
    if (!::IsIconic(m_hWnd) || m_hIcon == nullptr)
        return false;
    PAINTSTRUCT ps;
    const HDC hdc = ::BeginPaint(m_hWnd, &ps);
    ::SendMessageW(m_hWnd, WM_ICONERASEBKGND, reinterpret_cast<WPARAM>(hdc), 0);
    RECT client;
    ::GetClientRect(m_hWnd, &client);
    const IconOrigin origin =
        MinimisedIconOrigin(client.right - client.left, client.bottom - client.top,
                            ::GetSystemMetrics(SM_CXICON), ::GetSystemMetrics(SM_CYICON));
    ::DrawIcon(hdc, origin.x, origin.y, m_hBigIcon != nullptr ? m_hBigIcon : m_hIcon);
    ::EndPaint(m_hWnd, &ps);
    return true;
}

IControl* Win32DialogWindow::GetDlgItem(int nId)
{
    const auto it = m_Controls.find(nId);
    return it == m_Controls.end() ? nullptr : it->second.get();
}

bool Win32DialogWindow::PreTranslateMessage(MSG& msg)
{
    return m_pReportView && m_pReportView->PreTranslateMessage(msg);
}

IReportView* Win32DialogWindow::GetReportView()
{
    return m_pReportView.get();
}

IDetailsView* Win32DialogWindow::GetDetailsView()
{
    return m_pDetailsView.get();
}

Win32DetailsView::Win32DetailsView(HWND hDialog, const RECT& rect)
{
    m_hButton = ::CreateWindowExW(0, L"BUTTON", L"Details", WS_CHILD | WS_TABSTOP | BS_PUSHBUTTON, rect.left,
                                  rect.top, rect.right - rect.left, rect.bottom - rect.top, hDialog,
                                  reinterpret_cast<HMENU>(static_cast<INT_PTR>(kButtonId)), nullptr, nullptr);
    if (m_hButton != nullptr)
        ::SendMessageW(m_hButton, WM_SETFONT, ::SendMessageW(hDialog, WM_GETFONT, 0, 0), FALSE);
}

Win32DetailsView::~Win32DetailsView()
{
    if (m_hWindow != nullptr && ::IsWindow(m_hWindow))
        ::DestroyWindow(m_hWindow);
    if (m_hFont != nullptr)
        ::DeleteObject(m_hFont);
    if (m_hTextFont != nullptr)
        ::DeleteObject(m_hTextFont);
}

void Win32DetailsView::OnDialogDpiChanged(const RECT& rect, HFONT hFont)
{
    if (m_hButton == nullptr)
        return;
    ::MoveWindow(m_hButton, rect.left, rect.top, rect.right - rect.left, rect.bottom - rect.top, TRUE);
    ::SendMessageW(m_hButton, WM_SETFONT, reinterpret_cast<WPARAM>(hFont), TRUE);
}

void Win32DetailsView::SetDetails(const std::vector<DetailSection>& sections)
{
    std::wstring text;
    const auto append = [&text](const tstring& part) { text.append(part.begin(), part.end()); };
    for (const DetailSection& section : sections)
    {
        if (!text.empty())
            text += L"\r\n";
        append(section.title);
        text += L"\r\n";
        for (const tstring& line : section.lines)
        {
            text += L"- ";
            append(line);
            text += L"\r\n";
        }
    }
    m_Text = text;
    m_bHasSections = !sections.empty();
    UpdateShown();
    if (m_hWindow != nullptr && ::IsWindow(m_hWindow))
        ::SetWindowTextW(GetText(), m_Text.c_str());
}

void Win32DetailsView::OfferReport(std::function<std::string()> renderBundle)
{
    m_RenderBundle = std::move(renderBundle);
    UpdateShown();
}

void Win32DetailsView::UpdateShown()
{
    if (m_hButton != nullptr)
        ::ShowWindow(m_hButton, m_bHasSections || m_RenderBundle ? SW_SHOWNOACTIVATE : SW_HIDE);
    if (m_hWindow != nullptr && ::IsWindow(m_hWindow))
        for (int id : {kSaveButtonId, kOpenButtonId})
            ::EnableWindow(::GetDlgItem(m_hWindow, id), m_RenderBundle != nullptr);
}

void Win32DetailsView::Layout(int width, int height)
{
    // 120 by 26 with 8 between, at 96 DPI.
    const auto scaled = [this](int n) { return ::MulDiv(n, static_cast<int>(m_FontDpi), 96); };
    const int w = scaled(120), h = scaled(26), gap = scaled(8);
    const int top = height - h - gap;
    if (m_hText != nullptr)
        ::MoveWindow(m_hText, 0, 0, width, top > gap ? top - gap : 0, TRUE);
    ::MoveWindow(::GetDlgItem(m_hWindow, kSaveButtonId), width - 2 * (w + gap), top, w, h, TRUE);
    ::MoveWindow(::GetDlgItem(m_hWindow, kOpenButtonId), width - (w + gap), top, w, h, TRUE);
}

namespace
{
constexpr wchar_t kDetailsClass[] = L"RigInspectorDetails";

/// The save dialog, the browser and the message, the Win32 way.
class Win32ReportActionsUi : public IReportActionsUi
{
public:
    explicit Win32ReportActionsUi(HWND hOwner) : m_hOwner(hOwner) {}

    std::optional<std::filesystem::path> AskSavePath(const std::filesystem::path& suggested) override
    {
        std::wstring file(MAX_PATH * 4, L'\0');
        const std::wstring name = suggested.filename().wstring();
        const std::wstring folder = suggested.parent_path().wstring();
        name.copy(file.data(), file.size() - 1);
        OPENFILENAMEW ofn{};
        ofn.lStructSize = sizeof ofn;
        ofn.hwndOwner = m_hOwner;
        ofn.lpstrFilter = L"Web page, one file (*.html)\0*.html\0";
        ofn.lpstrFile = file.data();
        ofn.nMaxFile = static_cast<DWORD>(file.size());
        ofn.lpstrInitialDir = folder.empty() ? nullptr : folder.c_str();
        ofn.lpstrTitle = L"Save report";
        ofn.lpstrDefExt = L"html";
        ofn.Flags = OFN_OVERWRITEPROMPT | OFN_PATHMUSTEXIST | OFN_NOCHANGEDIR;
        if (!::GetSaveFileNameW(&ofn))
            return std::nullopt;
        return std::filesystem::path(file.c_str());
    }
    bool OpenInBrowser(const std::filesystem::path& file) override
    {
        const auto result = reinterpret_cast<INT_PTR>(
            ::ShellExecuteW(m_hOwner, L"open", file.c_str(), nullptr, nullptr, SW_SHOWNORMAL));
        return result > 32;
    }
    void ShowError(const tstring& text) override
    {
        const std::wstring message(text.begin(), text.end());
        ::MessageBoxW(m_hOwner, message.c_str(), L"Rig Inspector", MB_OK | MB_ICONWARNING);
    }

private:
    HWND m_hOwner;
};
} // namespace

void Win32DetailsView::OnReportAction(bool bSave)
{
    if (!m_RenderBundle)
        return;
    Win32ReportActionsUi ui(m_hWindow);
    ReportActions actions(ui, m_RenderBundle);
    if (bSave)
        actions.Save();
    else
        actions.Open();
}

// The details window keeps its read-only text filling it above its two
// buttons as it is sized, its size and font right for the monitor it is on,
// and hands the buttons' clicks to its view.
LRESULT CALLBACK Win32DetailsView::WindowProc(HWND hWnd, UINT message, WPARAM wParam, LPARAM lParam)
{
    auto* pThis = reinterpret_cast<Win32DetailsView*>(::GetWindowLongPtrW(hWnd, GWLP_USERDATA));
    if (message == WM_SIZE && pThis != nullptr)
    {
        pThis->Layout(LOWORD(lParam), HIWORD(lParam));
        return 0;
    }
    if (message == WM_COMMAND && HIWORD(wParam) == BN_CLICKED && pThis != nullptr)
    {
        if (LOWORD(wParam) == kSaveButtonId || LOWORD(wParam) == kOpenButtonId)
            pThis->OnReportAction(LOWORD(wParam) == kSaveButtonId);
        return 0;
    }
    if (message == WM_DPICHANGED && pThis != nullptr)
    {
        const UINT dpi = HIWORD(wParam);
        const HFONT hFont = ScaleFont(pThis->m_hFont, pThis->m_FontDpi, dpi);
        const HFONT hTextFont = ScaleFont(pThis->m_hTextFont, pThis->m_FontDpi, dpi);
        if (hFont != nullptr && hTextFont != nullptr)
        {
            for (HWND hChild : {::GetDlgItem(hWnd, kSaveButtonId), ::GetDlgItem(hWnd, kOpenButtonId)})
                ::SendMessageW(hChild, WM_SETFONT, reinterpret_cast<WPARAM>(hFont), TRUE);
            ::SendMessageW(pThis->GetText(), WM_SETFONT, reinterpret_cast<WPARAM>(hTextFont), TRUE);
            ::DeleteObject(pThis->m_hFont);
            ::DeleteObject(pThis->m_hTextFont);
            pThis->m_hFont = hFont;
            pThis->m_hTextFont = hTextFont;
            pThis->m_FontDpi = dpi;
        }
        else
        {
            for (const HFONT h : {hFont, hTextFont})
                if (h != nullptr)
                    ::DeleteObject(h);
        }
        const RECT& r = *reinterpret_cast<const RECT*>(lParam);
        ::SetWindowPos(hWnd, nullptr, r.left, r.top, r.right - r.left, r.bottom - r.top,
                       SWP_NOZORDER | SWP_NOACTIVATE);
        return 0;
    }
    return ::DefWindowProcW(hWnd, message, wParam, lParam);
}

void Win32DetailsView::OpenWindow()
{
    // A window of its own, not a child of the dialog: it may be moved and
    // sized freely and leaves the dialog's layout alone.
    if (m_hWindow == nullptr || !::IsWindow(m_hWindow))
    {
        const HINSTANCE hInstance = ::GetModuleHandleW(nullptr);
        WNDCLASSW wc{};
        wc.lpfnWndProc = &WindowProc;
        wc.hInstance = hInstance;
        wc.hCursor = ::LoadCursorW(nullptr, IDC_ARROW);
        wc.lpszClassName = kDetailsClass;
        ::RegisterClassW(&wc); // fails harmlessly once registered
        // 640 by 280 at 96 DPI, on the dialog's monitor: a hop of the path
        // table on one line.
        const UINT dpi = WindowDpi(m_hButton);
        m_hWindow =
            ::CreateWindowExW(0, kDetailsClass, L"Rig Inspector Details", WS_OVERLAPPEDWINDOW, CW_USEDEFAULT,
                              CW_USEDEFAULT, ::MulDiv(640, static_cast<int>(dpi), 96),
                              ::MulDiv(280, static_cast<int>(dpi), 96), nullptr, nullptr, hInstance, nullptr);
        if (m_hWindow == nullptr)
            return;
        // A font of its own: the dialog's may be replaced while this window lives.
        if (m_hFont == nullptr && m_hButton != nullptr)
        {
            const auto hDialogFont = reinterpret_cast<HFONT>(::SendMessageW(m_hButton, WM_GETFONT, 0, 0));
            m_hFont = ScaleFont(hDialogFont, dpi, dpi);
            m_hTextFont = ScaleFont(hDialogFont, dpi, dpi, true);
            m_FontDpi = dpi;
        }
        const auto child = [this, hInstance](const wchar_t* cls, const wchar_t* text, DWORD style, int id)
        {
            const HWND hChild =
                ::CreateWindowExW(0, cls, text, WS_CHILD | WS_VISIBLE | style, 0, 0, 0, 0, m_hWindow,
                                  reinterpret_cast<HMENU>(static_cast<INT_PTR>(id)), nullptr, nullptr);
            ::SendMessageW(hChild, WM_SETFONT, reinterpret_cast<WPARAM>(m_hFont), FALSE);
            return hChild;
        };
        m_hText = child(L"EDIT", L"", WS_VSCROLL | ES_MULTILINE | ES_READONLY | ES_AUTOVSCROLL, 1);
        ::SendMessageW(m_hText, WM_SETFONT, reinterpret_cast<WPARAM>(m_hTextFont), FALSE);
        child(L"BUTTON", L"Save report\u2026", WS_TABSTOP | BS_PUSHBUTTON, kSaveButtonId);
        child(L"BUTTON", L"Open in browser", WS_TABSTOP | BS_PUSHBUTTON, kOpenButtonId);
        // Sized messages from now on reach the view.
        ::SetWindowLongPtrW(m_hWindow, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
        RECT client;
        ::GetClientRect(m_hWindow, &client);
        Layout(client.right, client.bottom);
        UpdateShown();
    }
    ::SetWindowTextW(GetText(), m_Text.c_str());
    ::ShowWindow(m_hWindow, SW_SHOW);
    ::SetForegroundWindow(m_hWindow);
}

HWND Win32DetailsView::GetText() const
{
    return m_hWindow != nullptr && ::IsWindow(m_hWindow) ? m_hText : nullptr;
}

void Win32DialogWindow::ShowWindow()
{
    ::ShowWindow(m_hWnd, SW_SHOW);
}

void Win32DialogWindow::EndDialog(int nResult)
{
    // Like EndDialog: hide now, leave the modal loop when control returns to
    // it; the window and its buttons stay readable until RunModal returns.
    m_bEnded = true;
    m_nResult = nResult;
    ::ShowWindow(m_hWnd, SW_HIDE);
}

void Win32DialogWindow::SetTimer(unsigned nIdEvent, unsigned nElapse)
{
    ::SetTimer(m_hWnd, nIdEvent, nElapse, nullptr);
}

void Win32DialogWindow::KillTimer(unsigned nIdEvent)
{
    ::KillTimer(m_hWnd, nIdEvent);
}

int Win32Toolkit::RunModal(CDialogLogic& dlg)
{
    const DialogTemplate* pTemplate = FindDialogTemplate(dlg.GetTemplateId());
    ZUL_ASSERT(pTemplate != nullptr);
    // Only the main dialog sets the application's icon on itself; the graphic
    // configuration keeps the system's.
    Win32DialogWindow window(dlg, *pTemplate, pTemplate->bMainWindow ? m_hIcon : nullptr);
    m_ModalStack.push_back(&window);
    int nResult = -1;
    if (window.Create(m_hInstance))
    {
        if (!window.IsEnded() && !::IsWindowVisible(window.GetHwnd()))
            ::ShowWindow(window.GetHwnd(), SW_SHOWNORMAL);
        MSG msg;
        while (!window.IsEnded())
        {
            // A modal loop that takes the quit message leaves it for the
            // loops around it and ends with -1.
            if (::GetMessageW(&msg, nullptr, 0, 0) <= 0)
            {
                ::PostQuitMessage(static_cast<int>(msg.wParam));
                break;
            }
            DispatchDialogMessage(msg);
        }
        if (window.IsEnded())
            nResult = window.GetResult();
    }
    dlg.Attach(nullptr);
    m_ModalStack.pop_back();
    return nResult;
}

bool Win32Toolkit::PumpWaitingMessages()
{
    MSG msg;
    while (::PeekMessageW(&msg, nullptr, 0, 0, PM_NOREMOVE))
    {
        if (::GetMessageW(&msg, nullptr, 0, 0) <= 0)
            return false;
        DispatchDialogMessage(msg);
    }
    return true;
}

void Win32Toolkit::DispatchDialogMessage(MSG& msg)
{
    const HWND hRoot = msg.hwnd != nullptr ? ::GetAncestor(msg.hwnd, GA_ROOT) : nullptr;
    for (Win32DialogWindow* pWindow : m_ModalStack)
    {
        if (pWindow->GetHwnd() == hRoot && !pWindow->IsEnded() &&
            (pWindow->PreTranslateMessage(msg) || ::IsDialogMessageW(hRoot, &msg)))
            return;
    }
    ::TranslateMessage(&msg);
    ::DispatchMessageW(&msg);
}

void Win32Toolkit::PostQuitMessage(int nExitCode)
{
    m_nExitCode = nExitCode;
    ::PostQuitMessage(nExitCode);
}

std::uint32_t Win32Toolkit::TimeGetTime()
{
    return ::timeGetTime();
}

void Win32Toolkit::Sleep(std::uint32_t nMilliseconds)
{
    ::Sleep(nMilliseconds);
}

bool Win32Toolkit::StartProcess(const std::string& commandLine, int nShowMode)
{
    return ::WinExec(commandLine.c_str(), static_cast<UINT>(nShowMode)) > 31;
}
