// The recommendation tiers and the options file's writes. The buttons and
// the ways out are driven through the real widgets in the GUI tests.
#include <gtest/gtest.h>

#include <climits>
#include <filesystem>

#include "FakeToolkit.h"
#include "RigInspector/Diagnostics.h"
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

TEST(GraphicConfigDlg, AcceptWritesTheFourKeysAsOneUnitAndLeavesEvenWhenThatFails)
{
    using Entries = std::vector<std::pair<tstring, tstring>>;
    const Entries all = {
        {u"shadow", u"1"}, {u"audience", u"1"}, {u"event_screen", u"0"}, {u"char_lod", u"1"}};
    for (const bool bFail : {false, true})
    {
        g_inspector.m_CpuSpeed = 1000; // Middle tier: P.I.P Low
        g_inspector.m_VideoMemory = 64;
        g_inspector.m_SystemMemory = 512;
        theApp.m_bRunPatcher = bFail; // the patcher starts even after a failed write
        GetDiagnostics().Clear();
        FakeToolkit tk;
        std::vector<Entries> writes;
        CGraphicConfigDlg dlg(
            [&](const tstring& section, const Entries& entries, const std::string& path, tstring* pWhy)
            {
                EXPECT_EQ(section, u"video");
                EXPECT_EQ(path, "../game/option.ini");
                writes.push_back(entries);
                *pWhy = u"it is a directory, not a file";
                return !bFail;
            });
        tk.m_onGraphicDialog = [](CDialogLogic& d) { d.OnCommand(IDOK); };
        EXPECT_EQ(dlg.DoModal(), IDOK);

        EXPECT_EQ(writes, std::vector<Entries>{all});
        EXPECT_EQ(dlg.GetLastWriteResult(), !bFail);
        const auto diagnostics = GetDiagnostics().List();
        ASSERT_EQ(diagnostics.size(), bFail ? 1u : 0u);
        if (bFail)
        {
            // The file the relative name reached, from the working folder.
            const std::string full =
                (std::filesystem::current_path().parent_path() / "game" / "option.ini").string();
            EXPECT_EQ(diagnostics[0].code, "options_write_failed");
            EXPECT_EQ(diagnostics[0].message,
                      u"The graphic options could not be written to ../game/option.ini (" +
                          tstring(full.begin(), full.end()) + u": it is a directory, not a file).");
        }
        EXPECT_EQ(tk.m_quitCodes, std::vector<int>{0});
        using Started = std::vector<std::pair<std::string, int>>;
        EXPECT_EQ(tk.m_processes, (bFail ? Started{{"./patcher.exe", 5}} : Started{}));
    }
    GetDiagnostics().Clear();
    theApp.m_bRunPatcher = false;
    g_inspector.m_CpuSpeed = g_inspector.m_VideoMemory = g_inspector.m_SystemMemory = 0;
}
} // namespace
