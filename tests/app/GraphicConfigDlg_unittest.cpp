// The graphic configuration dialog: the recommendation tiers, the options
// file's writes and the two ways out.
#include <gtest/gtest.h>

#include <climits>

#include "FakeToolkit.h"
#include "RigInspectorApp/GraphicConfigDlg.h"
#include "RigInspectorApp/Inspector.h"
#include "RigInspectorApp/InspectorApp.h"

namespace
{
struct TierCase
{
    std::int32_t cpu, video, system;
    GraphicRecommendation::Tier tier;
};

using Tier = GraphicRecommendation::Tier;

class RecommendationTest : public ::testing::TestWithParam<TierCase>
{
};

TEST_P(RecommendationTest, ChecksTheTiersButtonsInIdOrder)
{
    const TierCase c = GetParam();
    g_inspector.m_CpuSpeed = c.cpu;
    g_inspector.m_VideoMemory = c.video;
    g_inspector.m_SystemMemory = c.system;

    FakeToolkit tk;
    CGraphicConfigDlg dlg([](auto&&...) { return true; });
    FakeWindow wnd(130, nullptr, &tk.m_checkLog);
    dlg.Attach(&wnd);
    EXPECT_TRUE(dlg.OnInitDialog());

    const bool bHigh = c.tier == Tier::High, bMiddle = c.tier == Tier::Middle;
    const int three = bHigh || bMiddle ? 1 : 0, pip = bHigh ? 1 : 0;
    const std::vector<std::pair<int, int>> expected = {
        {1001, three}, {1002, 1 - three}, {1003, three}, {1004, 1 - three},
        {1005, three}, {1006, 1 - three}, {1007, pip},   {1008, 1 - pip}};
    EXPECT_EQ(tk.m_checkLog, expected);
    EXPECT_EQ(RecommendGraphicOptions(c.cpu, c.video, c.system).tier, c.tier);
    g_inspector.m_CpuSpeed = g_inspector.m_VideoMemory = g_inspector.m_SystemMemory = 0;
}

INSTANTIATE_TEST_SUITE_P(
    Boundaries, RecommendationTest,
    ::testing::Values(TierCase{2400, 128, 1024, Tier::High}, TierCase{1001, 32, 256, Tier::High},
                      TierCase{1000, 64, 512, Tier::Middle}, TierCase{2400, 32, 255, Tier::Middle},
                      TierCase{-2400, 128, 1024, Tier::Middle}, TierCase{2400, 128, INT_MIN, Tier::Middle},
                      TierCase{2400, 31, 4096, Tier::Low}, TierCase{0, 0, 0, Tier::Low},
                      TierCase{INT_MAX, -1, INT_MAX, Tier::Low}));

struct Write
{
    tstring section, key, value;
    std::string path;
    bool operator==(const Write&) const = default;
};

class GraphicDialogTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        theApp.m_bRunPatcher = false;
        g_inspector.m_CpuSpeed = 1000; // Middle tier: P.I.P Low
        g_inspector.m_VideoMemory = 64;
        g_inspector.m_SystemMemory = 512;
    }
    void TearDown() override
    {
        theApp.m_bRunPatcher = false;
        g_inspector.m_CpuSpeed = g_inspector.m_VideoMemory = g_inspector.m_SystemMemory = 0;
    }

    ProfileWriter Recorder(int nFailAt = -1)
    {
        return [this, nFailAt](const tstring& s, const tstring& k, const tstring& v, const std::string& p)
        {
            m_writes.push_back({s, k, v, p});
            return static_cast<int>(m_writes.size()) != nFailAt;
        };
    }

    /// Runs the dialog modally and presses nButton once it is open.
    int Run(CGraphicConfigDlg& dlg, int nButton)
    {
        m_tk.m_onGraphicDialog = [nButton](CDialogLogic& d, FakeWindow&) { d.OnCommand(nButton); };
        return dlg.DoModal();
    }

    FakeToolkit m_tk;
    std::vector<Write> m_writes;
};

TEST_F(GraphicDialogTest, AcceptWritesTheFourKeysInOrderThenQuits)
{
    CGraphicConfigDlg dlg(Recorder());
    EXPECT_EQ(Run(dlg, IDOK), IDOK);

    const std::string file = "../game/option.ini";
    const std::vector<Write> expected = {{u"video", u"shadow", u"1", file},
                                         {u"video", u"audience", u"1", file},
                                         {u"video", u"event_screen", u"0", file},
                                         {u"video", u"char_lod", u"1", file}};
    EXPECT_EQ(m_writes, expected);
    EXPECT_EQ(dlg.GetLastWriteResult(), true);
    EXPECT_EQ(m_tk.m_quitCodes, std::vector<int>{0});
    EXPECT_TRUE(m_tk.m_processes.empty());
}

TEST_F(GraphicDialogTest, AFailedWriteStopsTheRestButTheDialogStillLeaves)
{
    theApp.m_bRunPatcher = true;
    CGraphicConfigDlg dlg(Recorder(2));
    Run(dlg, IDOK);

    ASSERT_EQ(m_writes.size(), 2u);
    EXPECT_EQ(m_writes[1].key, u"audience");
    EXPECT_EQ(dlg.GetLastWriteResult(), false);
    EXPECT_EQ(m_tk.m_processes, (std::vector<std::pair<std::string, int>>{{"./patcher.exe", 5}}));
    EXPECT_EQ(m_tk.m_quitCodes, std::vector<int>{0});
}

TEST_F(GraphicDialogTest, WritesWhatTheUserChoseNotTheRecommendation)
{
    CGraphicConfigDlg dlg(Recorder());
    m_tk.m_onGraphicDialog = [](CDialogLogic& d, FakeWindow& wnd)
    {
        wnd.m_controls.at(1007).SetCheck(1); // P.I.P High
        wnd.m_controls.at(1008).SetCheck(0);
        wnd.m_controls.at(1001).SetCheck(0); // Character Low
        wnd.m_controls.at(1002).SetCheck(1);
        d.OnCommand(IDOK);
    };
    dlg.DoModal();

    ASSERT_EQ(m_writes.size(), 4u);
    EXPECT_EQ(m_writes[2].value, u"1"); // event_screen
    EXPECT_EQ(m_writes[3].value, u"0"); // char_lod
}

TEST_F(GraphicDialogTest, RecommendUndoesTheUsersChanges)
{
    CGraphicConfigDlg dlg(Recorder());
    m_tk.m_onGraphicDialog = [](CDialogLogic& d, FakeWindow& wnd)
    {
        for (int id = 1001; id <= 1008; ++id)
            wnd.m_controls.at(id).SetCheck(id % 2); // everything High
        d.OnCommand(CGraphicConfigDlg::kRecommendButtonId);
        d.OnCommand(IDCANCEL);
    };
    dlg.DoModal();

    FakeWindow& wnd = *m_tk.m_windows.back();
    EXPECT_EQ(wnd.m_controls.at(1007).GetCheck(), 0);
    EXPECT_EQ(wnd.m_controls.at(1008).GetCheck(), 1);
    EXPECT_EQ(wnd.m_controls.at(1001).GetCheck(), 1);
}

TEST_F(GraphicDialogTest, CancelLeavesTheFileAloneAndStartsThePatcherOnlyWhenAsked)
{
    for (bool bPatcher : {false, true})
    {
        theApp.m_bRunPatcher = bPatcher;
        m_tk.m_processes.clear();
        CGraphicConfigDlg dlg(Recorder());
        EXPECT_EQ(Run(dlg, IDCANCEL), IDCANCEL);
        EXPECT_TRUE(m_writes.empty());
        EXPECT_FALSE(dlg.GetLastWriteResult().has_value());
        EXPECT_EQ(m_tk.m_processes.size(), bPatcher ? 1u : 0u);
    }
    EXPECT_EQ(m_tk.m_quitCodes, (std::vector<int>{0, 0}));
}
} // namespace
