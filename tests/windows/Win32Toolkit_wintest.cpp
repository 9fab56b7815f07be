// The Win32 toolkit layer on a real (Wine) desktop: the windows built from
// the templates, the routing of keys, clicks, closes and timers, the quit
// message through nested modal runs, and the RichEdit report view.
#include <windows.h>

#include <gtest/gtest.h>

#include <richedit.h>

#include <string>
#include <vector>

#include "RigInspectorApp/DialogTemplate.h"
#include "Win32Dialog.h"
#include "tests/common/ProbeDialog.h"

namespace
{
using ProbeDialog = ProbeDialogOf<Win32DialogWindow>;

HWND Hwnd(const ProbeDialog& d)
{
    return d.m_pWindow->GetHwnd();
}
HWND Item(const ProbeDialog& d, int nId)
{
    return ::GetDlgItem(Hwnd(d), nId);
}

std::u16string WindowText(HWND hWnd)
{
    wchar_t text[256] = {};
    ::GetWindowTextW(hWnd, text, 256);
    return reinterpret_cast<const char16_t*>(text);
}

class Win32ToolkitTest : public ::testing::Test
{
protected:
    void SetUp() override { SetToolkit(&m_Toolkit); }
    void TearDown() override
    {
        SetToolkit(nullptr);
        MSG msg;
        while (::PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE))
        {
        }
    }
    Win32Toolkit m_Toolkit{::GetModuleHandleW(nullptr), nullptr};
};
} // namespace

TEST_F(Win32ToolkitTest, TemplatesBecomeWindowsInDialogUnitsWithTheirStyles)
{
    for (const int nTemplate : {IDD_INSPECTOR_DIALOG, IDD_GRAPHIC_CONFIG_DIALOG})
    {
        SCOPED_TRACE(nTemplate);
        const DialogTemplate& t = *FindDialogTemplate(nTemplate);
        ProbeDialog dlg(nTemplate);
        dlg.m_OnInit = [&](ProbeDialog& d)
        {
            EXPECT_EQ(WindowText(Hwnd(d)), t.caption);
            const LONG_PTR style = ::GetWindowLongPtrW(Hwnd(d), GWL_STYLE);
            const LONG_PTR exStyle = ::GetWindowLongPtrW(Hwnd(d), GWL_EXSTYLE);
            EXPECT_EQ((style & WS_SYSMENU) != 0, t.bCloseBox);
            EXPECT_EQ((exStyle & WS_EX_APPWINDOW) != 0, t.bMainWindow);
            for (const DialogControlTemplate& c : t.controls)
            {
                if (c.nId == IDC_STATIC)
                    continue;
                const HWND hControl = Item(d, c.nId);
                ASSERT_NE(hControl, nullptr) << c.nId;
                // Position and size convert on their own, as dialog creation does.
                RECT position{c.x, c.y, c.cx, c.cy};
                ::MapDialogRect(Hwnd(d), &position);
                RECT actual;
                ::GetWindowRect(hControl, &actual);
                ::MapWindowPoints(nullptr, Hwnd(d), reinterpret_cast<POINT*>(&actual), 2);
                EXPECT_EQ(actual.left, position.left) << c.nId;
                EXPECT_EQ(actual.top, position.top) << c.nId;
                EXPECT_EQ(actual.right - actual.left, position.right) << c.nId;
                EXPECT_EQ(actual.bottom - actual.top, position.bottom) << c.nId;
                if (c.kind != DialogControlTemplate::Kind::ReportView)
                {
                    EXPECT_EQ(WindowText(hControl), c.text);
                }
            }
            // The static texts and the group box, which the logic never looks
            // up; the main dialog also has its (hidden) details button.
            int nChildren = 0;
            for (HWND h = ::GetWindow(Hwnd(d), GW_CHILD); h != nullptr; h = ::GetWindow(h, GW_HWNDNEXT))
                ++nChildren;
            EXPECT_EQ(nChildren,
                      static_cast<int>(t.controls.size()) + (nTemplate == IDD_INSPECTOR_DIALOG ? 1 : 0));
            if (nTemplate == IDD_GRAPHIC_CONFIG_DIALOG)
            {
                // Each High/Low pair is a choice of its own.
                ::SendMessageW(Item(d, IDC_SHADOW_HIGH), BM_CLICK, 0, 0);
                ::SendMessageW(Item(d, IDC_CHAR_HIGH), BM_CLICK, 0, 0);
                ::SendMessageW(Item(d, IDC_CHAR_LOW), BM_CLICK, 0, 0);
                EXPECT_EQ(d.GetDlgItem(IDC_CHAR_HIGH)->GetCheck(), 0);
                EXPECT_EQ(d.GetDlgItem(IDC_CHAR_LOW)->GetCheck(), 1);
                EXPECT_EQ(d.GetDlgItem(IDC_SHADOW_HIGH)->GetCheck(), 1);
            }
            d.End(7);
        };
        EXPECT_EQ(m_Toolkit.RunModal(dlg), 7);
        EXPECT_EQ(dlg.GetWindow(), nullptr);
    }
}

TEST_F(Win32ToolkitTest, KeysClicksAndClosesReachTheLogicUntilItEnds)
{
    ProbeDialog dlg(IDD_GRAPHIC_CONFIG_DIALOG);
    dlg.m_OnInit = [](ProbeDialog& d)
    {
        // Queued like real input, so they go through the modal loop's
        // dialog keyboard handling.
        ::PostMessageW(Hwnd(d), WM_KEYDOWN, VK_RETURN, 0); // the default button
        ::PostMessageW(Item(d, IDC_RECOMMEND), BM_CLICK, 0, 0);
        ::PostMessageW(Hwnd(d), WM_CLOSE, 0, 0); // the close box
        ::PostMessageW(Hwnd(d), WM_KEYDOWN, VK_ESCAPE, 0);
    };
    dlg.m_OnCommand = [](ProbeDialog& d, int nId)
    {
        // The logic decides: the close box alone must not have ended it.
        if (nId != IDCANCEL || d.m_Commands.size() != 4)
            return;
        d.End(IDCANCEL);
        EXPECT_FALSE(::IsWindowVisible(Hwnd(d)));
        EXPECT_TRUE(d.GetDlgItem(IDOK)->IsWindowEnabled()); // readable until the run returns
        ::SendMessageW(Item(d, IDOK), BM_CLICK, 0, 0);      // after the end: ignored
    };
    EXPECT_EQ(m_Toolkit.RunModal(dlg), IDCANCEL);
    EXPECT_EQ(dlg.m_Commands, (std::vector<int>{IDOK, IDC_RECOMMEND, IDCANCEL, IDCANCEL}));
}

TEST_F(Win32ToolkitTest, TimersRunUntilKilledAndTheQuitMessageEndsEveryModalRun)
{
    ProbeDialog outer(IDD_INSPECTOR_DIALOG);
    ProbeDialog inner(IDD_GRAPHIC_CONFIG_DIALOG);
    int nTicks = 0;
    int nInnerResult = 0;
    outer.m_OnInit = [](ProbeDialog& d) { d.GetWindow()->SetTimer(9, 1); };
    outer.m_OnTimer = [&](ProbeDialog& d, unsigned nId)
    {
        EXPECT_EQ(nId, 9u);
        if (++nTicks < 3)
            return;
        d.GetWindow()->KillTimer(9);
        // As "Next" does: the second dialog runs inside the first one's handler.
        nInnerResult = m_Toolkit.RunModal(inner);
    };
    inner.m_OnInit = [](ProbeDialog& d) { d.GetWindow()->SetTimer(1, 1); };
    inner.m_OnTimer = [&](ProbeDialog& d, unsigned)
    {
        d.GetWindow()->KillTimer(1);
        m_Toolkit.PostQuitMessage(5);
    };
    EXPECT_EQ(m_Toolkit.RunModal(outer), -1);
    EXPECT_EQ(nTicks, 3);
    EXPECT_EQ(nInnerResult, -1);
    EXPECT_EQ(m_Toolkit.GetExitCode(), 5);
    EXPECT_FALSE(m_Toolkit.PumpWaitingMessages());
    // The sequence loop posts the quit again; a dialog opened then does not
    // wait for input that never comes.
    m_Toolkit.PostQuitMessage(0);
    ProbeDialog late(IDD_GRAPHIC_CONFIG_DIALOG);
    EXPECT_EQ(m_Toolkit.RunModal(late), -1);
}

TEST_F(Win32ToolkitTest, RichEditViewShowsTheReportWithItsStylesAndLinks)
{
    ProbeDialog dlg(IDD_INSPECTOR_DIALOG);
    dlg.m_OnInit = [](ProbeDialog& d)
    {
        IReportView* pView = d.GetWindow()->GetReportView();
        ASSERT_NE(pView, nullptr);
        const std::u16string doc =
            u"<html><body><B>Head</B><br>\tsend<font color=blue>passed.</font>"
            u"<a href=\"http://127.0.0.1/more\" target=_blank>click here</a></body></html>";
        EXPECT_FALSE(pView->LoadDocument(doc.c_str(), doc.size() * 2 + 2));
        pView->Navigate(u"about:blank");
        ASSERT_TRUE(pView->HasDocument());
        ASSERT_TRUE(pView->LoadDocument(doc.c_str(), doc.size() * 2 + 2));

        const HWND hEdit = Item(d, IDC_EXPLORER);
        wchar_t buffer[256] = {};
        GETTEXTEX get{sizeof buffer, GT_DEFAULT, 1200, nullptr, nullptr};
        ::SendMessageW(hEdit, EM_GETTEXTEX, reinterpret_cast<WPARAM>(&get), reinterpret_cast<LPARAM>(buffer));
        const std::u16string text = reinterpret_cast<const char16_t*>(buffer);
        EXPECT_EQ(text, u"Head\r\tsendpassed.click here");
        auto format = [&](std::u16string_view what)
        {
            const auto cp = static_cast<LONG>(text.find(what));
            CHARRANGE range{cp, cp + static_cast<LONG>(what.size())};
            ::SendMessageW(hEdit, EM_EXSETSEL, 0, reinterpret_cast<LPARAM>(&range));
            CHARFORMAT2W f{};
            f.cbSize = sizeof f;
            ::SendMessageW(hEdit, EM_GETCHARFORMAT, SCF_SELECTION, reinterpret_cast<LPARAM>(&f));
            return f;
        };
        EXPECT_TRUE(format(u"Head").dwEffects & CFE_BOLD);
        EXPECT_FALSE(format(u"send").dwEffects & CFE_BOLD);
        EXPECT_EQ(format(u"passed.").crTextColor, RGB(0, 0, 255));
        EXPECT_TRUE(format(u"click here").dwEffects & CFE_LINK);
        EXPECT_FALSE(format(u"passed.").dwEffects & CFE_LINK);
        d.End(IDOK);
    };
    EXPECT_EQ(m_Toolkit.RunModal(dlg), IDOK);
}

// The details sit beside the report without moving a control of the template:
// the button appears only once there is something to tell, and its window
// shows every line.
TEST_F(Win32ToolkitTest, DetailsAppearBesideTheReportWithoutMovingTheTemplate)
{
    ProbeDialog dlg(IDD_INSPECTOR_DIALOG);
    std::vector<RECT> before, after;
    const auto rects = [&dlg]
    {
        std::vector<RECT> out;
        for (int id : {1, 2, 3})
        {
            RECT r{};
            ::GetWindowRect(Item(dlg, id), &r);
            out.push_back(r);
        }
        return out;
    };
    dlg.m_OnInit = [&](ProbeDialog& d)
    {
        auto* pView = static_cast<Win32DetailsView*>(d.GetWindow()->GetDetailsView());
        ASSERT_NE(pView, nullptr);
        // The dialog itself is not shown yet: the button's own style tells.
        const auto shown = [pView]
        { return (::GetWindowLongW(pView->GetButton(), GWL_STYLE) & WS_VISIBLE) != 0; };
        EXPECT_FALSE(shown());
        before = rects();
        pView->SetDetails({{u"Diagnostics", {u"Port 20000 is held by process 42 (game.exe)."}}});
        EXPECT_TRUE(shown());
        after = rects();
        pView->OpenWindow();
        wchar_t text[256] = {};
        ::GetWindowTextW(pView->GetText(), text, 256);
        EXPECT_EQ(std::wstring(text), L"Diagnostics\r\n- Port 20000 is held by process 42 (game.exe).\r\n");
        d.End(IDCANCEL);
    };
    EXPECT_EQ(dlg.DoModal(), IDCANCEL);
    ASSERT_EQ(before.size(), after.size());
    for (std::size_t i = 0; i < before.size(); ++i)
        EXPECT_TRUE(::EqualRect(&before[i], &after[i])) << i;
}
