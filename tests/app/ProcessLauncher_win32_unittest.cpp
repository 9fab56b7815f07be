// The process starter behind the toolkits' StartProcess: WinExec starts the
// program with its arguments and does not wait for it.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include "RigInspectorApp/ProcessLauncher.h"
#include "tests/settings/TempDir.h"

namespace
{
TEST(ProcessLauncher, StartsTheProgramWithItsArgumentOrReportsFalse)
{
    TempDir dir;
    const std::string started = dir.File("started.txt");
    EXPECT_FALSE(LaunchProcess(""));
    EXPECT_FALSE(LaunchProcess(dir.File("missing.exe")));
    ASSERT_TRUE(LaunchProcess("cmd.exe /c echo hello> \"" + started + "\""));

    std::string text;
    for (int i = 0; i < 100 && text.rfind("hello", 0) != 0; ++i)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        text = TempDir::Read(started);
    }
    EXPECT_EQ(text, "hello\r\n");
}
} // namespace
