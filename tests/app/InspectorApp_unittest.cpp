// The application object's one switch and its start-up.
#include <gtest/gtest.h>

#include "FakeToolkit.h"
#include "RigInspectorApp/InspectorApp.h"
#include "RigInspectorApp/InspectorDlg.h"
#include "share/common/StringUtil.h"

namespace
{
TEST(InspectorApp, OnlyTheExactWordPatcherIsTheSwitch)
{
    EXPECT_TRUE(IsPatcherSwitch(u"patcher"));
    for (const char16_t* text :
         {u"", u"Patcher", u"PATCHER", u"patcher now", u"\"patcher\"", u" patcher", u"patcher "})
        EXPECT_FALSE(IsPatcherSwitch(text)) << zul::ToMultiByte(text);

    const char* argv[] = {"fc", "patcher", "now"};
    EXPECT_EQ(CommandLineText(3, argv), u"patcher now");
    EXPECT_EQ(CommandLineText(1, argv), u"");
}

TEST(InspectorApp, InitInstanceSetsTheSwitchThenRunsTheMainDialog)
{
    FakeToolkit tk;
    tk.m_onPump = [&tk](int) { tk.QueueClick(IDCANCEL); }; // before the first step is due
    for (const char16_t* text : {u"patcher", u"Patcher"})
    {
        EXPECT_FALSE(theApp.InitInstance(text));
        EXPECT_EQ(theApp.m_bRunPatcher, zul::WcsCmp(text, u"patcher") == 0);
    }
    EXPECT_EQ(tk.m_modalTemplates, (std::vector<int>{102, 102}));
    EXPECT_TRUE(tk.m_processes.empty());
    theApp.m_bRunPatcher = false;
    g_inspector.m_pDlg = nullptr;
}
} // namespace
