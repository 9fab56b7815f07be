// The application object's one switch and its start-up, and the process
// starter behind the toolkits' StartProcess.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "FakeToolkit.h"
#include "RigInspectorApp/InspectorApp.h"
#include "RigInspectorApp/InspectorDlg.h"
#include "RigInspectorApp/ProcessLauncher.h"
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

TEST(ProcessLauncher, StartsTheProgramWithItsArgumentOrReportsFalse)
{
    char pattern[] = "/tmp/rig_launch_XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    const std::string dir = pattern;
    const std::string fifo = dir + "/started";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const int fd = open(fifo.c_str(), O_RDONLY | O_NONBLOCK);
    ASSERT_GE(fd, 0);
    std::ofstream(dir + "/patcher.exe") << "#!/bin/sh\necho \"$1\" > \"$(dirname \"$0\")/started\"\n";
    std::ofstream(dir + "/plain.exe") << "#!/bin/sh\nexit 0\n";
    chmod((dir + "/patcher.exe").c_str(), 0755);
    chmod((dir + "/plain.exe").c_str(), 0644);

    EXPECT_FALSE(LaunchProcess(""));
    EXPECT_FALSE(LaunchProcess(dir + "/missing.exe"));
    EXPECT_FALSE(LaunchProcess(dir + "/plain.exe"));
    EXPECT_TRUE(LaunchProcess(dir + "/patcher.exe  hello"));

    pollfd p{fd, POLLIN, 0};
    EXPECT_EQ(poll(&p, 1, 10000), 1);
    char buffer[16] = {};
    EXPECT_GT(read(fd, buffer, sizeof buffer - 1), 0);
    EXPECT_STREQ(buffer, "hello\n");
    close(fd);
    std::filesystem::remove_all(dir);
}
} // namespace
