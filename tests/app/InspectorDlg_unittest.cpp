// The main dialog's report and check sequence, driven through a fake toolkit
// with a fake clock and fake checks.
#include <gtest/gtest.h>

#include "FakeToolkit.h"
#include "RigInspectorApp/InspectorApp.h"
#include "RigInspectorApp/InspectorDlg.h"

namespace
{
const tstring kPrefix = kReportPrefix;
const tstring kSuffix = kReportSuffix;

/// Five fake checks that print one line each, take a chosen time on the fake
/// clock and record when they ran.
struct FakeChecks
{
    explicit FakeChecks(FakeToolkit& tk) : m_tk(tk) {}

    InspectorChecks Make()
    {
        InspectorChecks checks;
        for (int i = 0; i < 5; ++i)
        {
            checks.steps.push_back(
                [this, i]
                {
                    m_starts.push_back(m_tk.m_now);
                    m_firewallEnabledDuring.push_back(FirewallButtonEnabled());
                    g_inspector.Print(u"<br>check %d", i);
                    if (m_during)
                        m_during(i);
                    m_tk.m_now += m_durations[i];
                    m_ends.push_back(m_tk.m_now);
                    return i == 1 ? m_firewallResult : 0;
                });
        }
        checks.registerGameWithFirewall = [this]
        {
            ++m_registered;
            g_inspector.Print(u"<br>registered");
        };
        return checks;
    }

    bool FirewallButtonEnabled() const
    {
        return !m_tk.m_windows.empty() && m_tk.m_windows.front()->m_controls.at(3).IsWindowEnabled();
    }

    FakeToolkit& m_tk;
    std::uint32_t m_durations[5] = {0, 0, 0, 0, 0};
    int m_firewallResult = 0;
    std::function<void(int)> m_during;
    std::vector<std::uint32_t> m_starts, m_ends;
    std::vector<bool> m_firewallEnabledDuring;
    int m_registered = 0;
};

class InspectorDlgTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        g_inspector.m_pDlg = nullptr;
        theApp.m_bRunPatcher = false;
    }
    void TearDown() override { g_inspector.m_pDlg = nullptr; }

    /// Presses Cancel at the first pump after the sequence has finished.
    void CancelWhenDone(CInspectorDlg& dlg)
    {
        m_tk.m_onPump = [this, &dlg](int)
        {
            if (dlg.IsSequenceDone() && !m_bClicked)
            {
                m_bClicked = true;
                m_tk.QueueClick(IDCANCEL);
            }
        };
    }

    FakeToolkit m_tk;
    FakeChecks m_checks{m_tk};
    bool m_bClicked = false;
};

TEST_F(InspectorDlgTest, NormalRunWritesTheFragmentsInOrder)
{
    m_checks.m_firewallResult = 3;
    CInspectorDlg dlg(m_checks.Make());
    CancelWhenDone(dlg);

    EXPECT_EQ(dlg.DoModal(), IDCANCEL);

    const tstring expected = tstring(kReportHeader) + u"<br>check 0<br>" + u"<br>check 1<br>" +
                             kNetworkNotice + u"<br>check 2<br>" + u"<br>check 3<br>" + u"<br>check 4<br>";
    EXPECT_EQ(dlg.GetReport(), expected);
    ASSERT_FALSE(m_tk.m_view.m_documents.empty());
    EXPECT_EQ(m_tk.m_view.m_documents.back(), kPrefix + expected + kSuffix);
    EXPECT_EQ(m_tk.m_view.m_navigations, std::vector<tstring>{u"about:blank"});
    EXPECT_TRUE(m_tk.m_windows.front()->m_bShown);
    EXPECT_EQ(m_tk.m_windows.front()->m_timerElapse, 1u);
    EXPECT_EQ(m_tk.m_modalTemplates, std::vector<int>{102});
    EXPECT_EQ(m_tk.m_quitCodes.front(), 0);
    EXPECT_TRUE(m_tk.m_processes.empty());
    EXPECT_EQ(g_inspector.m_pDlg, &dlg);
}

TEST_F(InspectorDlgTest, NextStepStarts100msAfterThePreviousEnded)
{
    m_checks.m_durations[1] = 20000; // a step of 20 s
    m_checks.m_durations[3] = 37;
    CInspectorDlg dlg(m_checks.Make());
    CancelWhenDone(dlg);
    dlg.DoModal();

    ASSERT_EQ(m_checks.m_starts.size(), 5u);
    EXPECT_EQ(m_checks.m_starts[0], 100u);
    for (int i = 1; i < 5; ++i)
    {
        const std::uint32_t pause = m_checks.m_starts[i] - m_checks.m_ends[i - 1];
        EXPECT_GE(pause, 100u) << "before step " << i;
        EXPECT_LT(pause, 100u + CInspectorDlg::kLoopSleepMs) << "before step " << i;
    }
}

TEST_F(InspectorDlgTest, PacingAcrossThe32BitWrapNeverStalls)
{
    // Unsigned arithmetic: while last + 100 has wrapped and the clock has
    // not, the pause shrinks to one loop turn; once the clock has wrapped it
    // is the full 100 ms again.
    m_tk.m_now = 0xFFFFFFFFu - 30u;
    CInspectorDlg dlg(m_checks.Make());
    CancelWhenDone(dlg);
    dlg.DoModal();

    const std::vector<std::uint32_t> expected = {0xFFFFFFE1u, 0xFFFFFFEBu, 0xFFFFFFF5u, 0xFFFFFFFFu, 99u};
    EXPECT_EQ(m_checks.m_starts, expected);
}

TEST_F(InspectorDlgTest, IdlesAfterTheLastStepUntilAButton)
{
    CInspectorDlg dlg(m_checks.Make());
    std::size_t reportAtEnd = 0, documentsAtEnd = 0;
    int idlePumps = 0;
    m_tk.m_onPump = [&](int)
    {
        if (!dlg.IsSequenceDone())
            return;
        if (idlePumps++ == 0)
        {
            reportAtEnd = dlg.GetReport().size();
            documentsAtEnd = m_tk.m_view.m_documents.size();
        }
        if (idlePumps == 500)
            m_tk.QueueClick(IDCANCEL);
    };
    dlg.DoModal();

    EXPECT_EQ(idlePumps, 500);
    EXPECT_EQ(m_checks.m_starts.size(), 5u);
    EXPECT_EQ(dlg.GetStepIndex(), 5u);
    EXPECT_EQ(dlg.GetReport().size(), reportAtEnd);
    EXPECT_EQ(m_tk.m_view.m_documents.size(), documentsAtEnd);
}

TEST_F(InspectorDlgTest, CancelDuringAStepLetsItFinishThenQuits)
{
    theApp.m_bRunPatcher = true; // Cancel never starts the patcher
    m_checks.m_during = [this](int step)
    {
        if (step == 2)
            m_tk.QueueClick(IDCANCEL);
    };
    CInspectorDlg dlg(m_checks.Make());

    EXPECT_EQ(dlg.DoModal(), IDCANCEL);

    EXPECT_EQ(m_checks.m_starts.size(), 3u);
    const tstring& report = dlg.GetReport();
    EXPECT_EQ(report.substr(report.size() - 15), u"<br>check 2<br>");
    EXPECT_EQ(m_tk.m_modalTemplates, std::vector<int>{102});
    EXPECT_TRUE(m_tk.m_processes.empty());
    EXPECT_EQ(m_tk.m_quitCodes.front(), 0);
    EXPECT_GE(m_tk.m_quitsTaken, 1);
}

TEST_F(InspectorDlgTest, NextAfterStepZeroOpensTheGraphicDialogAndRunsNoMoreSteps)
{
    CInspectorDlg dlg(m_checks.Make());
    m_tk.m_onPump = [&](int)
    {
        if (dlg.GetStepIndex() == 1 && !m_bClicked)
        {
            m_bClicked = true;
            m_tk.QueueClick(IDOK);
        }
    };
    bool bMainEndedFirst = false;
    m_tk.m_onGraphicDialog = [&](CDialogLogic& graphic, FakeWindow&)
    {
        bMainEndedFirst = m_tk.m_windows.front()->m_bEnded;
        graphic.OnCommand(IDCANCEL);
    };

    EXPECT_EQ(dlg.DoModal(), IDOK);

    EXPECT_TRUE(bMainEndedFirst);
    EXPECT_EQ(m_checks.m_starts.size(), 1u);
    EXPECT_EQ(m_tk.m_modalTemplates, (std::vector<int>{102, 130}));
    EXPECT_TRUE(m_tk.m_processes.empty());
    EXPECT_EQ(m_tk.m_quitCodes.front(), 0);
}

class FirewallButtonTest : public InspectorDlgTest, public ::testing::WithParamInterface<int>
{
};

TEST_P(FirewallButtonTest, EnabledAfterStepOneOnlyForThreeAndPressedOnce)
{
    const int result = GetParam();
    m_checks.m_firewallResult = result;
    CInspectorDlg dlg(m_checks.Make());
    bool bPressed = false;
    m_tk.m_onPump = [&](int)
    {
        if (dlg.GetStepIndex() == 3 && !bPressed)
        {
            bPressed = true;
            m_tk.QueueClick(3);
            m_tk.QueueClick(3); // the second click meets a disabled button
        }
        if (dlg.IsSequenceDone() && !m_bClicked)
        {
            m_bClicked = true;
            m_tk.QueueClick(IDCANCEL);
        }
    };
    dlg.DoModal();

    const bool bOffered = result == 3;
    EXPECT_EQ(m_checks.m_firewallEnabledDuring, (std::vector<bool>{false, false, bOffered, false, false}));
    EXPECT_EQ(m_checks.m_registered, bOffered ? 1 : 0);
    EXPECT_FALSE(m_checks.FirewallButtonEnabled());
    const bool bBetweenBlocks =
        dlg.GetReport().find(u"<br>check 2<br><br>registered<br>check 3") != tstring::npos;
    EXPECT_EQ(bBetweenBlocks, bOffered);
}

INSTANTIATE_TEST_SUITE_P(Results, FirewallButtonTest, ::testing::Values(3, 0, 2));

class ReportTest : public InspectorDlgTest
{
protected:
    void SetUp() override
    {
        InspectorDlgTest::SetUp();
        m_view.m_bHasDocument = true;
        m_dlg.Attach(&m_wnd);
    }

    FakeView m_view;
    FakeWindow m_wnd{102, &m_view, nullptr};
    CInspectorDlg m_dlg{InspectorChecks{}};
};

TEST_F(ReportTest, EachAppendLoadsTheWholeDocumentAsAZeroTerminatedStreamOf2xLengthPlus2Bytes)
{
    m_dlg.AppendReport(u"A");
    m_dlg.AppendReport(u"B");

    EXPECT_EQ(m_dlg.GetReport(), u"AB");
    ASSERT_EQ(m_view.m_streams.size(), 2u);
    const tstring document = kPrefix + u"AB" + kSuffix;
    EXPECT_EQ(m_view.m_streams[1], document + tstring(1, u'\0'));
    EXPECT_EQ(m_view.m_sizes[1], 2 * document.size() + 2);
    EXPECT_EQ(m_view.m_scrolls, 0); // appending does not scroll

    m_dlg.RenderReport(tstring(1000, u'x'));
    EXPECT_EQ(m_view.m_documents.back().size(), 1080u);
    EXPECT_EQ(m_view.m_sizes.back(), 2162u);
}

TEST_F(ReportTest, NothingIsLoadedBeforeTheViewHasADocumentAndLaterNothingIsLost)
{
    m_view.m_bHasDocument = false;
    m_dlg.AppendReport(u"early ");
    m_dlg.ScrollReportToEnd();
    EXPECT_TRUE(m_view.m_documents.empty());
    EXPECT_EQ(m_view.m_scrolls, 0);

    m_view.m_bHasDocument = true;
    m_dlg.AppendReport(u"late");
    ASSERT_EQ(m_view.m_documents.size(), 1u);
    EXPECT_EQ(m_view.m_documents[0], kPrefix + u"early late" + kSuffix);
}

TEST_F(ReportTest, FormattedAppendsKeepAtMost511Characters)
{
    m_dlg.AppendReportFormat(u"<br>");
    EXPECT_EQ(m_dlg.GetReport(), u"<br>");

    m_dlg.AppendReportFormat(u"%s|", tstring(600, u'y'));
    EXPECT_EQ(m_dlg.GetReport(), u"<br>" + tstring(511, u'y'));
}

TEST_F(ReportTest, PrintDropsTextUntilTheDialogIsSetThenAppendsAndScrolls)
{
    g_inspector.Print(u"<br>lost %d", 1);
    EXPECT_TRUE(m_view.m_documents.empty());

    g_inspector.m_pDlg = &m_dlg;
    g_inspector.Print(u"<br>kept %d", 2);
    g_inspector.Print(u"%s", tstring(600, u'z'));

    EXPECT_EQ(m_dlg.GetReport(), u"<br>kept 2" + tstring(511, u'z'));
    EXPECT_EQ(m_view.m_scrolls, 2);
}
} // namespace
