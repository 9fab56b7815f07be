// The recommendation tiers and the options file's writes. The buttons and
// the ways out are driven through the real widgets in the GUI tests.
#include <gtest/gtest.h>

#include <climits>

#include "FakeToolkit.h"
#include "RigInspectorApp/GraphicConfigDlg.h"
#include "RigInspectorApp/Inspector.h"
#include "RigInspectorApp/InspectorApp.h"

namespace
{
using Tier = GraphicRecommendation::Tier;

TEST(GraphicRecommendation, TiersAtTheirBoundaries)
{
    const struct
    {
        std::int32_t cpu, video, system;
        Tier tier;
        const char* highs; // character, shadow, spectators, P.I.P
    } cases[] = {{2400, 128, 1024, Tier::High, "1111"},    {1001, 32, 256, Tier::High, "1111"},
                 {1000, 64, 512, Tier::Middle, "1110"},    {2400, 32, 255, Tier::Middle, "1110"},
                 {-2400, 128, 1024, Tier::Middle, "1110"}, {2400, 128, INT_MIN, Tier::Middle, "1110"},
                 {2400, 31, 4096, Tier::Low, "0000"},      {0, 0, 0, Tier::Low, "0000"},
                 {INT_MAX, -1, INT_MAX, Tier::Low, "0000"}};
    for (const auto& c : cases)
    {
        const GraphicRecommendation r = RecommendGraphicOptions(c.cpu, c.video, c.system);
        const std::string highs = {"01"[r.charHigh], "01"[r.shadowHigh], "01"[r.spectatorsHigh],
                                   "01"[r.pipHigh]};
        EXPECT_EQ(r.tier, c.tier) << c.cpu << " " << c.video << " " << c.system;
        EXPECT_EQ(highs, c.highs) << c.cpu << " " << c.video << " " << c.system;
    }
}

struct Write
{
    tstring section, key, value;
    std::string path;
    bool operator==(const Write&) const = default;
};

TEST(GraphicConfigDlg, AcceptWritesTheKeysInOrderUntilOneFailsThenLeaves)
{
    const std::string file = "../game/option.ini";
    const std::vector<Write> all = {{u"video", u"shadow", u"1", file},
                                    {u"video", u"audience", u"1", file},
                                    {u"video", u"event_screen", u"0", file}, // Middle tier: P.I.P Low
                                    {u"video", u"char_lod", u"1", file}};
    for (int failAt : {0, 2})
    {
        g_inspector.m_CpuSpeed = 1000;
        g_inspector.m_VideoMemory = 64;
        g_inspector.m_SystemMemory = 512;
        theApp.m_bRunPatcher = failAt != 0; // the patcher starts even after a failed write
        FakeToolkit tk;
        std::vector<Write> writes;
        CGraphicConfigDlg dlg(
            [&](const tstring& s, const tstring& k, const tstring& v, const std::string& p)
            {
                writes.push_back({s, k, v, p});
                return static_cast<int>(writes.size()) != failAt;
            });
        tk.m_onGraphicDialog = [](CDialogLogic& d) { d.OnCommand(IDOK); };
        EXPECT_EQ(dlg.DoModal(), IDOK);

        const std::size_t nWrites = failAt == 0 ? all.size() : failAt;
        EXPECT_EQ(writes, std::vector<Write>(all.begin(), all.begin() + nWrites)) << failAt;
        EXPECT_EQ(dlg.GetLastWriteResult(), failAt == 0);
        EXPECT_EQ(tk.m_quitCodes, std::vector<int>{0});
        using Started = std::vector<std::pair<std::string, int>>;
        EXPECT_EQ(tk.m_processes, (failAt == 0 ? Started{} : Started{{"./patcher.exe", 5}}));
    }
    theApp.m_bRunPatcher = false;
    g_inspector.m_CpuSpeed = g_inspector.m_VideoMemory = g_inspector.m_SystemMemory = 0;
}
} // namespace
