// The process starter behind the toolkits' StartProcess.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <chrono>
#include <thread>

#include "RigInspectorApp/ProcessLauncher.h"
#include "tests/settings/TempDir.h"

namespace
{
TEST(ProcessLauncher, StartsTheProgramWithItsArgumentOrReportsFalse)
{
    TempDir dir;
    TempDir::Write(dir.File("patcher.exe"), "#!/bin/sh\necho \"$1\" > \"$(dirname \"$0\")/started\"\n");
    TempDir::Write(dir.File("plain.exe"), "#!/bin/sh\nexit 0\n");
    ASSERT_EQ(::chmod(dir.File("patcher.exe").c_str(), 0755), 0);

    EXPECT_FALSE(LaunchProcess(""));
    EXPECT_FALSE(LaunchProcess(dir.File("missing.exe")));
    EXPECT_FALSE(LaunchProcess(dir.File("plain.exe"))); // not executable
    ASSERT_TRUE(LaunchProcess(dir.File("patcher.exe") + "  hello"));

    std::string text;
    for (int i = 0; i < 100 && text != "hello\n"; ++i)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        text = TempDir::Read(dir.File("started"));
    }
    EXPECT_EQ(text, "hello\n");
}
} // namespace
