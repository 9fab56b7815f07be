// The main dialog's report and its steps' pacing over a fake toolkit, clock and
// checks. Cancel, Next and the firewall button are driven through the real
// widgets in the GUI tests.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <thread>

#include "FakeToolkit.h"
#include "RigInspectorApp/InspectorApp.h"
#include "RigInspectorApp/InspectorDlg.h"

namespace
{
const tstring kPrefix = kReportPrefix;
const tstring kSuffix = kReportSuffix;

/// Five checks that print one line each, take a chosen time on the fake clock
/// and record when they ran.
struct FakeChecks
{
    explicit FakeChecks(FakeToolkit& tk) : m_tk(tk) {}
    InspectorChecks Make()
    {
        InspectorChecks checks;
        for (int i = 0; i < 5; ++i)
            checks.steps.push_back(
                [this, i]
                {
                    m_starts.push_back(m_tk.m_now);
                    g_inspector.Print(u"<br>check %d", i);
                    m_tk.m_now += m_durations[i];
                    return 0;
                });
        checks.registerGameWithFirewall = [] {};
        return checks;
    }

    FakeToolkit& m_tk;
    std::uint32_t m_durations[5] = {};
    std::vector<std::uint32_t> m_starts;
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

    FakeToolkit m_tk;
    FakeChecks m_checks{m_tk};
};

TEST_F(InspectorDlgTest, EachStepStarts100msAfterThePreviousEndedAlsoAcrossTheClocksWrap)
{
    const struct
    {
        std::uint32_t clock, durations[5];
        std::vector<std::uint32_t> starts;
    } cases[] = {
        {0, {0, 20000, 0, 37, 0}, {100, 200, 20300, 20400, 20537}},
        // While last + 100 has wrapped and the clock has not, the pause shrinks
        // to one loop turn; once the clock has wrapped it is the full 100 ms again.
        {0xFFFFFFFFu - 30u, {}, {0xFFFFFFE1u, 0xFFFFFFEBu, 0xFFFFFFF5u, 0xFFFFFFFFu, 99u}},
    };
    for (const auto& c : cases)
    {
        FakeToolkit tk;
        tk.m_now = c.clock;
        FakeChecks checks(tk);
        std::copy(std::begin(c.durations), std::end(c.durations), checks.m_durations);
        CInspectorDlg dlg(checks.Make());
        tk.m_onPump = [&](int)
        {
            if (dlg.IsSequenceDone() && tk.m_queuedClicks.empty())
                tk.QueueClick(IDCANCEL);
        };
        dlg.DoModal();
        EXPECT_EQ(checks.m_starts, c.starts);
    }
}

TEST_F(InspectorDlgTest, RunsTheStepsInOrderThenIdlesUntilAButton)
{
    CInspectorDlg dlg(m_checks.Make());
    std::size_t documentsAtEnd = 0;
    int idlePumps = 0;
    m_tk.m_onPump = [&](int)
    {
        if (!dlg.IsSequenceDone())
            return;
        if (idlePumps++ == 0)
            documentsAtEnd = m_tk.m_view.m_documents.size();
        if (idlePumps == 500)
            m_tk.QueueClick(IDCANCEL);
    };
    EXPECT_EQ(dlg.DoModal(), IDCANCEL);

    EXPECT_EQ(idlePumps, 500);
    const tstring expected = tstring(kReportHeader) + u"<br>check 0<br><br>check 1<br>" + kNetworkNotice +
                             u"<br>check 2<br><br>check 3<br><br>check 4<br>";
    EXPECT_EQ(dlg.GetReport(), expected);
    EXPECT_EQ(m_tk.m_view.m_documents.size(), documentsAtEnd);
    EXPECT_EQ(m_tk.m_view.m_documents.back(), kPrefix + expected + kSuffix);
    EXPECT_EQ(m_tk.m_view.m_navigations, std::vector<tstring>{u"about:blank"});
    EXPECT_TRUE(m_tk.m_windows.front()->m_bShown);
    EXPECT_EQ(m_tk.m_quitCodes.at(0), 0);
    EXPECT_TRUE(m_tk.m_processes.empty());
}

// The work after the sequence (the extended network step) runs off the UI
// thread while the loop idles; its findings reach the details view, and the
// report and the steps' pacing stay as they were.
TEST_F(InspectorDlgTest, AfterTheLastStepABackgroundJobFillsTheDetailsNotTheReport)
{
    InspectorChecks checks = m_checks.Make();
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    checks.afterSequence = [released]
    {
        released.wait_for(std::chrono::seconds(5));
        return std::vector<DetailSection>{{u"Latency", {u"Idle: 20.0 ms median"}}};
    };
    CInspectorDlg dlg(std::move(checks));
    bool bReleased = false;
    m_tk.m_onPump = [&](int)
    {
        if (!dlg.IsSequenceDone())
            return;
        const auto& shown = m_tk.m_windows.front()->m_details.m_shown;
        if (!bReleased)
        {
            EXPECT_TRUE(shown.empty());
            release.set_value();
            bReleased = true;
        }
        else if (!shown.empty() && m_tk.m_queuedClicks.empty())
        {
            EXPECT_EQ(shown.back().title, u"Latency");
            m_tk.QueueClick(IDCANCEL);
        }
        else
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(1)); // the job's thread is real
        }
    };
    EXPECT_EQ(dlg.DoModal(), IDCANCEL);
    EXPECT_TRUE(bReleased);
    EXPECT_EQ(m_tk.m_windows.front()->m_details.m_shown.size(), 1u);
    EXPECT_EQ(dlg.GetReport().find(u"Latency"), tstring::npos);
}

// The report can be saved once every step has run, not before: the bundle
// then holds the report as shown and this run's document.
TEST_F(InspectorDlgTest, OnceTheStepsHaveRunTheDetailsOfferTheBundle)
{
    CInspectorDlg dlg(m_checks.Make());
    bool bOfferedEarly = false;
    m_tk.m_onPump = [&](int)
    {
        const auto& offered = m_tk.m_windows.front()->m_details.m_renderBundle;
        if (!dlg.IsSequenceDone())
            bOfferedEarly = bOfferedEarly || offered != nullptr;
        else if (offered && m_tk.m_queuedClicks.empty())
            m_tk.QueueClick(IDCANCEL);
    };
    EXPECT_EQ(dlg.DoModal(), IDCANCEL);
    EXPECT_FALSE(bOfferedEarly);
    const std::string bundle = m_tk.m_windows.front()->m_details.m_renderBundle();
    EXPECT_NE(bundle.find("<br>check 3<br><br>check 4<br>"), std::string::npos);
    EXPECT_NE(bundle.find("\"tool\": \"rig_inspector\""), std::string::npos);
}

class ReportTest : public InspectorDlgTest
{
protected:
    void SetUp() override
    {
        InspectorDlgTest::SetUp();
        m_dlg.Attach(&m_wnd);
    }

    FakeView m_view;
    FakeWindow m_wnd{&m_view};
    CInspectorDlg m_dlg{InspectorChecks{}};
};

TEST_F(ReportTest, EachAppendLoadsTheWholeDocumentOnceTheViewHasOne)
{
    m_dlg.AppendReport(u"early ");
    m_dlg.ScrollReportToEnd();
    EXPECT_TRUE(m_view.m_documents.empty());
    EXPECT_EQ(m_view.m_scrolls, 0);

    m_view.m_bHasDocument = true;
    m_dlg.AppendReport(u"A");
    m_dlg.AppendReport(u"B");
    const tstring document = kPrefix + u"early AB" + kSuffix;
    EXPECT_EQ(m_view.m_documents, (std::vector<tstring>{kPrefix + u"early A" + kSuffix, document}));
    EXPECT_EQ(m_view.m_sizes.back(), 2 * document.size() + 2);
    EXPECT_EQ(m_view.m_scrolls, 0); // appending does not scroll

    m_dlg.RenderReport(tstring(1000, u'x'));
    EXPECT_EQ(m_view.m_sizes.back(), 2162u);
    EXPECT_TRUE(m_view.m_bAllZeroTerminated);
}

TEST_F(ReportTest, PrintDropsTextUntilTheDialogIsSetThenKeepsAtMost511Characters)
{
    m_view.m_bHasDocument = true;
    g_inspector.Print(u"<br>lost %d", 1);
    EXPECT_TRUE(m_view.m_documents.empty());

    g_inspector.m_pDlg = &m_dlg;
    g_inspector.Print(u"<br>kept %d", 2);
    g_inspector.Print(u"%s", tstring(600, u'z'));
    EXPECT_EQ(m_dlg.GetReport(), u"<br>kept 2" + tstring(511, u'z'));
    EXPECT_EQ(m_view.m_scrolls, 2);
}
} // namespace
