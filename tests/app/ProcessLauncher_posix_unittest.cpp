// The process starter behind the toolkits' StartProcess.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "RigInspectorApp/ProcessLauncher.h"

namespace
{
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
