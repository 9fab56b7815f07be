// rig_inspector_cli run as a support engineer would run it, with nothing
// listening on the server's ports: exit status, live lines, --report, --json,
// --accept, --patcher.
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>

#include "tests/e2e/CliHarness.h"

namespace
{
class CliTest : public e2e::CliTest
{
protected:
    void SetUp() override
    {
        e2e::CliTest::SetUp();
        // Minimums no machine meets (memory and video compare unsigned, so -1
        // is the largest), so the verdicts do not depend on this machine.
        TempDir::Write(m_Dir + "/rig_inspector.ini",
                       "[system]\nmin_system_memory=-1\nmin_video_memory=-1\nmin_cpu_speed=2147483647\n");
    }
};

TEST_F(CliTest, RunsTheSequenceAndWritesReportAndJson)
{
    const e2e::CliRun run = Run("--report report.html --json result.json");
    EXPECT_EQ(run.status, 1) << run.err;

    EXPECT_EQ(run.out.rfind("Rig Inspector v1.1\n", 0), 0u) << run.out;
    EXPECT_NE(run.out.find("\nStarting Network Test.\nIt can take over 30secs. Please wait...\n"),
              std::string::npos);
    EXPECT_EQ(run.out.find('<'), std::string::npos);
    EXPECT_EQ(run.out.find('\x1b'), std::string::npos); // not a terminal: no colours

    const std::string prefix = "<html><body><font style=\"font-family:arial; font-size:9pt\">";
    EXPECT_EQ(run.report.rfind(prefix + "<B><font>Rig Inspector v1.1</font><br></B><br>Checking OS...", 0),
              0u)
        << run.report;
    const std::size_t notice =
        run.report.find("<br><br>Starting Network Test.<br>It can take over 30secs. Please wait...");
    EXPECT_NE(notice, std::string::npos);
    EXPECT_LT(run.report.find("Connecting to Firewall Manager..."), notice);
    EXPECT_TRUE(run.report.ends_with("<br></font></body></html>")) << run.report;

    const nlohmann::json& checks = run.json["checks"];
    EXPECT_EQ(run.json["passed"], false);
    EXPECT_EQ(checks["system"]["memory"]["verdict"], "failed");
    EXPECT_EQ(checks["tcp"]["verdict"], "failed");
    EXPECT_EQ(checks["udp"]["verdict"], "failed");
    EXPECT_TRUE(run.json["options_written"].is_null());
    EXPECT_FALSE(std::filesystem::exists(m_Game + "/option.ini"));
}

TEST_F(CliTest, JsonToStandardOutputKeepsEverythingElseOnStandardError)
{
    const e2e::CliRun run = Run("--json -");
    EXPECT_EQ(run.status, 1) << run.err;
    const auto j = nlohmann::json::parse(run.out); // throws unless stdout is only JSON
    EXPECT_EQ(j["tool"], "rig_inspector_cli");
    EXPECT_NE(run.err.find("Checking OS..."), std::string::npos);
}

TEST_F(CliTest, AcceptWritesTheRecommendedOptionsAndPatcherIsStartedOnLeaving)
{
    const std::string fifo = m_Dir + "/started";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const int fd = open(fifo.c_str(), O_RDONLY | O_NONBLOCK);
    ASSERT_GE(fd, 0);
    TempDir::Write(m_Dir + "/patcher.exe", "#!/bin/sh\necho patched > started\n");
    chmod((m_Dir + "/patcher.exe").c_str(), 0755);

    const e2e::CliRun run = Run("--accept --patcher --quiet --json result.json");
    EXPECT_EQ(run.status, 1) << run.err;
    EXPECT_TRUE(run.out.empty());

    EXPECT_EQ(run.json["options_written"], true);
    const auto& rec = run.json["recommendation"];
    std::ostringstream expected;
    expected << "[video]\nshadow=" << rec["shadow"] << "\naudience=" << rec["audience"]
             << "\nevent_screen=" << rec["event_screen"] << "\nchar_lod=" << rec["char_lod"] << "\n";
    std::string written = TempDir::Read(m_Game + "/option.ini");
    std::erase(written, '\r'); // the line ends are the writer's business
    EXPECT_EQ(written, expected.str());

    pollfd p{fd, POLLIN, 0};
    EXPECT_EQ(poll(&p, 1, 10000), 1);
    char buffer[16] = {};
    EXPECT_GT(read(fd, buffer, sizeof buffer - 1), 0);
    EXPECT_STREQ(buffer, "patched\n");
    close(fd);
}

// A full disk under --report and --json, and an option.ini that is a folder:
// the options' failure is the one the status tells, and the outputs that
// could not be written leave nothing behind, not even an empty file.
TEST_F(CliTest, FailedWritesLeaveNoFileAndTheOptionsFailureIsTheStatus)
{
    std::filesystem::create_directory(m_Game + "/option.ini");
    const e2e::CliRun run = Run("--accept --quiet --report ../full/report.html --json ../full/result.json",
                                "mkdir full && mount -t tmpfs -o size=4k rig-full full && { head -c 65536 "
                                "/dev/zero >full/fill; true; }",
                                "ls -A full >listing.txt", /*bPrivateMounts=*/true);
    EXPECT_EQ(run.status, 4) << run.err;
    EXPECT_NE(run.err.find("cannot write the report"), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("cannot write the JSON"), std::string::npos) << run.err;
    EXPECT_EQ(TempDir::Read(m_Root + "/listing.txt"), "fill\n");
}

TEST_F(CliTest, UsageHelpAndVersion)
{
    EXPECT_EQ(Run("--report").status, 2);
    const e2e::CliRun help = Run("--help");
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("--accept"), std::string::npos);
    const e2e::CliRun version = Run("--version");
    EXPECT_EQ(version.status, 0);
    EXPECT_NE(version.out.find("1.1"), std::string::npos);
}
} // namespace
