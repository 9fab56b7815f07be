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
    EXPECT_EQ(CommandLineText(2, argv), u"patcher");
    EXPECT_EQ(CommandLineText(3, argv), u"patcher now");
    EXPECT_EQ(CommandLineText(1, argv), u"");
}

TEST(InspectorApp, InitInstanceSetsTheSwitchThenRunsTheMainDialog)
{
    FakeToolkit tk;
    // Cancel at the first pump, before the first step is due.
    tk.m_onPump = [&tk](int) { tk.QueueClick(IDCANCEL); };
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

class ProcessLauncherTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        char pattern[] = "/tmp/rig_launch_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        m_dir = pattern;
    }
    void TearDown() override { std::filesystem::remove_all(m_dir); }

    std::string WriteScript(const std::string& name, const std::string& body, bool bExecutable)
    {
        const std::string path = m_dir + "/" + name;
        std::ofstream(path) << "#!/bin/sh\n" << body << "\n";
        chmod(path.c_str(), bExecutable ? 0755 : 0644);
        return path;
    }

    std::string m_dir;
};

TEST_F(ProcessLauncherTest, StartsTheProgramWithoutWaitingForIt)
{
    const std::string fifo = m_dir + "/started";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const int fd = open(fifo.c_str(), O_RDONLY | O_NONBLOCK);
    ASSERT_GE(fd, 0);
    // The program writes its argument, then keeps running: the launch must
    // have returned long before it ends.
    const std::string script = WriteScript(
        "patcher.exe", "exec >/dev/null 2>&1; echo \"$1\" > \"$(dirname \"$0\")/started\"; sleep 1", true);

    EXPECT_TRUE(LaunchProcess(script + " hello"));

    pollfd p{fd, POLLIN, 0};
    ASSERT_EQ(poll(&p, 1, 10000), 1);
    char buffer[16] = {};
    EXPECT_GT(read(fd, buffer, sizeof buffer - 1), 0);
    EXPECT_STREQ(buffer, "hello\n");
    close(fd);
}

TEST_F(ProcessLauncherTest, FailuresAreReportedAsFalse)
{
    EXPECT_FALSE(LaunchProcess(""));
    EXPECT_FALSE(LaunchProcess(m_dir + "/missing.exe"));
    EXPECT_FALSE(LaunchProcess(WriteScript("plain.exe", "exit 0", false)));
}
} // namespace
