#pragma once
// Runs the built rig_inspector_cli as a player would, below a game's root
// folder of its own (patcher/ as the working directory, game/ beside it),
// against the built rig_test_server on its default ports.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <memory>

#include <nlohmann/json.hpp>

#include "tests/server/ServerProcess.h"
#include "tests/settings/TempDir.h"

namespace e2e
{
// Bounds one run of the whole sequence; the slowest (nothing answering, or
// two phases at their 10 s limit) takes about 35 s.
constexpr int kRunLimitSeconds = 120;

/// What the network scenarios run with: the report and JSON to files, nothing live.
const std::string kReportArgs = "--quiet --report report.html --json result.json";

struct CliRun
{
    int status = -1;
    std::string out, report, err;
    nlohmann::json json;

    bool Has(const std::string& text) const { return report.find(text) != std::string::npos; }
};

class CliTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        std::filesystem::create_directories(m_Dir);
        std::filesystem::create_directories(m_Game);
    }

    void StartServer(std::vector<std::string> args = {})
    {
        // A pong inside its ping's own millisecond has a round trip of 0 and
        // is ignored by design: a small delay keeps every run countable.
        args.insert(args.begin(), {"--pong-delay", "2"});
        m_Server = std::make_unique<ServerProcess>(args);
        ASSERT_TRUE(m_Server->WaitUntilReady()) << m_Server->GetStderr();
    }

    /// Runs the CLI from a script in the root folder. prelude runs first and
    /// must succeed; postlude runs after the CLI, which keeps its exit status.
    /// With bPrivateMounts the script's mounts vanish with it.
    CliRun Run(const std::string& args = kReportArgs, const std::string& prelude = "",
               const std::string& postlude = "", bool bPrivateMounts = false)
    {
        for (const char* old : {"/patcher/report.html", "/patcher/result.json", "/out.txt", "/err.txt"})
            std::filesystem::remove(m_Root + old);
        const std::string script = m_Root + "/run.sh";
        TempDir::Write(script, "cd '" + m_Root + "' || exit 99\n" + prelude +
                                   "\ncd patcher || exit 99\ntimeout -k 5 " +
                                   std::to_string(kRunLimitSeconds) + " '" RIG_CLI_PATH "' " + args +
                                   " > ../out.txt 2> ../err.txt < /dev/null\nstatus=$?\ncd .. || exit 99\n" +
                                   postlude + "\nexit $status\n");
        const int raw = std::system(
            ((bPrivateMounts ? "unshare --mount --propagation private sh '" : "sh '") + script + "'")
                .c_str());
        CliRun run;
        run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
        run.out = TempDir::Read(m_Root + "/out.txt");
        run.report = TempDir::Read(m_Dir + "/report.html");
        run.err = TempDir::Read(m_Root + "/err.txt");
        const std::string json = TempDir::Read(m_Dir + "/result.json");
        if (!json.empty())
            run.json = nlohmann::json::parse(json, nullptr, false);
        return run;
    }

    TempDir m_Temp;
    std::string m_Root = m_Temp.Path(), m_Dir = m_Root + "/patcher", m_Game = m_Root + "/game";
    std::unique_ptr<ServerProcess> m_Server; // stopped before its folder goes
};
} // namespace e2e
