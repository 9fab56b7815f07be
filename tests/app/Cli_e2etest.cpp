// rig_inspector_cli run as a support engineer would run it, in a temporary
// game folder: exit status, live lines, --report, --json, --accept, --patcher.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <nlohmann/json.hpp>

namespace
{
struct CliRun
{
    int status = -1;
    std::string out, err;
};

std::string ReadFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

class CliTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        char pattern[] = "/tmp/rig_cli_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        m_root = pattern;
        m_dir = m_root + "/patcher";
        std::filesystem::create_directories(m_dir);
        std::filesystem::create_directories(m_root + "/game");
        // Minimums no machine meets (memory and video compare unsigned, so -1
        // is the largest), so the verdicts do not depend on this machine.
        std::ofstream(m_dir + "/rig_inspector.ini")
            << "[system]\nmin_system_memory=-1\nmin_video_memory=-1\nmin_cpu_speed=2147483647\n";
    }
    void TearDown() override { std::filesystem::remove_all(m_root); }

    CliRun Start(const std::string& args)
    {
        const std::string command = "cd '" + m_dir + "' && '" RIG_CLI_PATH "' " + args + " > '" + m_root +
                                    "/out.txt' 2> '" + m_root + "/err.txt' < /dev/null";
        const int raw = std::system(command.c_str());
        CliRun run;
        run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
        run.out = ReadFile(m_root + "/out.txt");
        run.err = ReadFile(m_root + "/err.txt");
        return run;
    }

    std::string m_root, m_dir;
};

TEST_F(CliTest, RunsTheSequenceAndWritesReportAndJson)
{
    const CliRun run = Start("--report report.html --json result.json");
    EXPECT_EQ(run.status, 1) << run.err;

    EXPECT_EQ(run.out.rfind("Rig Inspector v1.1\n", 0), 0u) << run.out;
    EXPECT_NE(run.out.find("\nChecking OS..."), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("\nStarting Network Test.\nIt can take over 30secs. Please wait...\n"),
              std::string::npos);
    EXPECT_EQ(run.out.find('<'), std::string::npos);
    EXPECT_EQ(run.out.find('\x1b'), std::string::npos); // not a terminal: no colours

    const std::string report = ReadFile(m_dir + "/report.html");
    const std::string prefix = "<html><body><font style=\"font-family:arial; font-size:9pt\">";
    EXPECT_EQ(report.rfind(prefix + "<B><font>Rig Inspector v1.1</font><br></B><br>Checking OS...", 0), 0u)
        << report;
    const std::size_t notice =
        report.find("<br><br>Starting Network Test.<br>It can take over 30secs. Please wait...");
    EXPECT_NE(notice, std::string::npos);
    EXPECT_LT(report.find("Connecting to Firewall Manager..."), notice);
    EXPECT_TRUE(report.ends_with("<br></font></body></html>")) << report;

    const auto j = nlohmann::json::parse(ReadFile(m_dir + "/result.json"));
    EXPECT_EQ(j["passed"], false);
    EXPECT_EQ(j["checks"]["system"]["memory"]["verdict"], "failed");
    EXPECT_NE(j["checks"]["system"]["video"]["verdict"], "passed");
    EXPECT_EQ(j["checks"]["system"]["cpu"]["verdict"], "failed");
    EXPECT_NE(j["checks"]["firewall"]["verdict"], "not_run");
    EXPECT_EQ(j["checks"]["system"]["memory"]["memory_mb"], j["measured"]["system_memory_mb"]);
    EXPECT_TRUE(j["options_written"].is_null());
    EXPECT_FALSE(std::filesystem::exists(m_root + "/game/option.ini"));
}

TEST_F(CliTest, JsonToStandardOutputKeepsEverythingElseOnStandardError)
{
    const CliRun run = Start("--json -");
    EXPECT_EQ(run.status, 1) << run.err;
    const auto j = nlohmann::json::parse(run.out); // throws unless stdout is only JSON
    EXPECT_EQ(j["tool"], "rig_inspector_cli");
    EXPECT_NE(run.err.find("Checking OS..."), std::string::npos);
}

TEST_F(CliTest, AcceptWritesTheRecommendedOptionsAndPatcherIsStartedOnLeaving)
{
    const std::string fifo = m_dir + "/started";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const int fd = open(fifo.c_str(), O_RDONLY | O_NONBLOCK);
    ASSERT_GE(fd, 0);
    std::ofstream(m_dir + "/patcher.exe") << "#!/bin/sh\necho patched > started\n";
    chmod((m_dir + "/patcher.exe").c_str(), 0755);

    const CliRun run = Start("--accept --patcher --quiet --json result.json");
    EXPECT_EQ(run.status, 1) << run.err;
    EXPECT_TRUE(run.out.empty());

    const auto j = nlohmann::json::parse(ReadFile(m_dir + "/result.json"));
    EXPECT_EQ(j["options_written"], true);
    const auto& rec = j["recommendation"];
    std::ostringstream expected;
    expected << "[video]\nshadow=" << rec["shadow"] << "\naudience=" << rec["audience"]
             << "\nevent_screen=" << rec["event_screen"] << "\nchar_lod=" << rec["char_lod"] << "\n";
    std::string written = ReadFile(m_root + "/game/option.ini");
    std::erase(written, '\r'); // the line ends are the writer's business
    EXPECT_EQ(written, expected.str());

    pollfd p{fd, POLLIN, 0};
    EXPECT_EQ(poll(&p, 1, 10000), 1);
    char buffer[16] = {};
    EXPECT_GT(read(fd, buffer, sizeof buffer - 1), 0);
    EXPECT_STREQ(buffer, "patched\n");
    close(fd);
}

TEST_F(CliTest, UsageHelpAndVersion)
{
    EXPECT_EQ(Start("--bogus").status, 2);
    EXPECT_EQ(Start("--report").status, 2);
    const CliRun help = Start("--help");
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("--accept"), std::string::npos);
    const CliRun version = Start("--version");
    EXPECT_EQ(version.status, 0);
    EXPECT_NE(version.out.find("1.1"), std::string::npos);
}
} // namespace
