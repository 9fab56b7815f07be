// The Win32 front end and the DPI: the manifest rig_inspector.exe carries, as
// the system reads it, and the main dialog, its icons and the details window
// when the window's DPI changes (as on a move to another monitor). This test
// program carries the same resources as rig_inspector.exe.
#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "RigInspectorApp/DialogTemplate.h"
#include "Win32Dialog.h"
#include "Win32Dpi.h"
#include "resource.h"
#include "tests/common/ProbeDialog.h"

namespace
{
using ProbeDialog = ProbeDialogOf<Win32DialogWindow>;

std::wstring ActCtxSetting(HANDLE hContext, const wchar_t* pNamespace, const wchar_t* pName)
{
    wchar_t value[128] = {};
    SIZE_T nWritten = 0;
    if (!::QueryActCtxSettingsW(0, hContext, pNamespace, pName, value, 128, &nWritten))
        return L"(none)";
    return value;
}

RECT ClientRectOf(HWND hWnd)
{
    RECT r{};
    ::GetWindowRect(hWnd, &r);
    ::MapWindowPoints(nullptr, ::GetParent(hWnd), reinterpret_cast<POINT*>(&r), 2);
    return r;
}

LONG FontHeight(HWND hWnd)
{
    LOGFONTW font{};
    ::GetObjectW(reinterpret_cast<HFONT>(::SendMessageW(hWnd, WM_GETFONT, 0, 0)), sizeof font, &font);
    return font.lfHeight < 0 ? -font.lfHeight : font.lfHeight;
}

int IconWidth(HWND hWnd, WPARAM nKind)
{
    ICONINFO info{};
    const auto hIcon = reinterpret_cast<HICON>(::SendMessageW(hWnd, WM_GETICON, nKind, 0));
    if (hIcon == nullptr || !::GetIconInfo(hIcon, &info))
        return 0;
    BITMAP bitmap{};
    ::GetObjectW(info.hbmColor != nullptr ? info.hbmColor : info.hbmMask, sizeof bitmap, &bitmap);
    ::DeleteObject(info.hbmColor);
    ::DeleteObject(info.hbmMask);
    return bitmap.bmWidth;
}

void SendDpiChanged(HWND hWnd, UINT dpi, RECT suggested)
{
    ::SendMessageW(hWnd, WM_DPICHANGED, MAKEWPARAM(dpi, dpi), reinterpret_cast<LPARAM>(&suggested));
}
} // namespace

TEST(Win32Dpi, TheExecutableDeclaresPerMonitorV2WithTheOlderFallback)
{
    // The manifest embedded in the built program, read by the system's own
    // parser: an element in the wrong namespace reads as absent.
    std::wstring path = L"Z:" RIG_INSPECTOR_EXE;
    for (wchar_t& c : path)
        c = c == L'/' ? L'\\' : c;
    ACTCTXW context{};
    context.cbSize = sizeof context;
    context.dwFlags = ACTCTX_FLAG_RESOURCE_NAME_VALID;
    context.lpSource = path.c_str();
    context.lpResourceName = MAKEINTRESOURCEW(1);
    const HANDLE hContext = ::CreateActCtxW(&context);
    ASSERT_NE(hContext, INVALID_HANDLE_VALUE) << ::GetLastError();
    EXPECT_EQ(
        ActCtxSetting(hContext, L"http://schemas.microsoft.com/SMI/2016/WindowsSettings", L"dpiAwareness"),
        L"PerMonitorV2, PerMonitor");
    EXPECT_EQ(ActCtxSetting(hContext, L"http://schemas.microsoft.com/SMI/2005/WindowsSettings", L"dpiAware"),
              L"true/pm");
    ::ReleaseActCtx(hContext);
}

TEST(Win32Dpi, TheMainDialogLaysItselfOutAgainAtTheNewDpiAndBack)
{
    const HINSTANCE hInstance = ::GetModuleHandleW(nullptr);
    Win32Toolkit toolkit(hInstance, ::LoadIconW(hInstance, MAKEINTRESOURCEW(IDR_MAINFRAME)));
    SetToolkit(&toolkit);
    ProbeDialog dlg(IDD_INSPECTOR_DIALOG);
    dlg.m_OnInit = [](ProbeDialog& d)
    {
        const HWND hDlg = d.m_pWindow->GetHwnd();
        auto* pDetails = static_cast<Win32DetailsView*>(d.GetWindow()->GetDetailsView());
        ASSERT_NE(pDetails, nullptr);
        std::vector<HWND> children;
        for (HWND h = ::GetWindow(hDlg, GW_CHILD); h != nullptr; h = ::GetWindow(h, GW_HWNDNEXT))
            children.push_back(h);
        ASSERT_GE(children.size(), 5u); // the template's controls, the view, the details button
        std::vector<RECT> before;
        for (HWND h : children)
            before.push_back(ClientRectOf(h));
        const HWND hNext = ::GetDlgItem(hDlg, IDOK);
        const LONG nFontBefore = FontHeight(hNext);
        const int nSmallBefore = IconWidth(hDlg, ICON_SMALL);
        const int nBigBefore = IconWidth(hDlg, ICON_BIG);
        EXPECT_EQ(nSmallBefore, ::GetSystemMetrics(SM_CXSMICON));
        EXPECT_EQ(nBigBefore, ::GetSystemMetrics(SM_CXICON));
        RECT window{};
        ::GetWindowRect(hDlg, &window);
        const UINT dpi = WindowDpi(hDlg);

        // Twice the DPI: the suggested rectangle, everything twice as large
        // (fonts do not scale exactly), nothing outside the client area.
        const RECT doubled{window.left, window.top, window.left + 2 * (window.right - window.left),
                           window.top + 2 * (window.bottom - window.top)};
        SendDpiChanged(hDlg, 2 * dpi, doubled);
        RECT now{};
        ::GetWindowRect(hDlg, &now);
        EXPECT_TRUE(::EqualRect(&now, &doubled));
        RECT client{};
        ::GetClientRect(hDlg, &client);
        for (std::size_t i = 0; i < children.size(); ++i)
        {
            const RECT r = ClientRectOf(children[i]);
            const double scaleX = double(r.right - r.left) / (before[i].right - before[i].left);
            const double scaleY = double(r.bottom - r.top) / (before[i].bottom - before[i].top);
            EXPECT_NEAR(scaleX, 2.0, 0.2) << i;
            EXPECT_NEAR(scaleY, 2.0, 0.2) << i;
            EXPECT_NEAR(double(r.left) / std::max<LONG>(before[i].left, 1), 2.0, 0.2) << i;
            EXPECT_LE(r.right, client.right) << i;
            EXPECT_LE(r.bottom, client.bottom) << i;
        }
        EXPECT_NEAR(double(FontHeight(hNext)) / nFontBefore, 2.0, 0.15);
        EXPECT_EQ(IconWidth(hDlg, ICON_SMALL), 2 * nSmallBefore);
        EXPECT_EQ(IconWidth(hDlg, ICON_BIG), 2 * nBigBefore);

        // Back: exactly where the dialog manager put everything.
        SendDpiChanged(hDlg, dpi, window);
        for (std::size_t i = 0; i < children.size(); ++i)
        {
            const RECT r = ClientRectOf(children[i]);
            EXPECT_TRUE(::EqualRect(&r, &before[i])) << i;
        }
        EXPECT_EQ(FontHeight(hNext), nFontBefore);
        EXPECT_EQ(IconWidth(hDlg, ICON_SMALL), nSmallBefore);

        // The details window: 640 x 280 at 96 DPI, and its own DPI changes
        // (to a rect the system suggests, inside the 1024 x 768 test screen).
        pDetails->SetDetails({{u"Diagnostics", {u"Port 20000 is held by process 42 (game.exe)."}}});
        pDetails->OpenWindow();
        RECT details{};
        ::GetWindowRect(pDetails->GetWindow(), &details);
        EXPECT_EQ(details.right - details.left, ::MulDiv(640, static_cast<int>(dpi), 96));
        EXPECT_EQ(details.bottom - details.top, ::MulDiv(280, static_cast<int>(dpi), 96));
        const LONG nTextFont = FontHeight(pDetails->GetText());
        const RECT moved{10, 10, 10 + 3 * (details.right - details.left) / 2,
                         10 + 3 * (details.bottom - details.top) / 2};
        SendDpiChanged(pDetails->GetWindow(), 2 * dpi, moved);
        ::GetWindowRect(pDetails->GetWindow(), &details);
        EXPECT_TRUE(::EqualRect(&details, &moved));
        EXPECT_NEAR(double(FontHeight(pDetails->GetText())) / nTextFont, 2.0, 0.15);
        RECT text{};
        ::GetWindowRect(pDetails->GetText(), &text);
        RECT inside{};
        ::GetClientRect(pDetails->GetWindow(), &inside);
        EXPECT_EQ(text.right - text.left, inside.right);
        d.End(IDCANCEL);
    };
    EXPECT_EQ(dlg.DoModal(), IDCANCEL);
    SetToolkit(nullptr);
}
