// rig_inspector_cli's run history and bundle end to end: each run adds one
// line, --history lists them, the bundle carries the --json bytes, and a torn
// line or a read-only folder never stops a run.
#include "tests/e2e/CliHarness.h"

namespace
{
class BundleCliTest : public e2e::CliTest
{
protected:
    void SetUp() override
    {
        e2e::CliTest::SetUp();
        StartServer();
    }

    /// The runs' own state folder, whatever the test runner set.
    e2e::CliRun RunKept(const std::string& args, const std::string& prelude = "", bool bPrivateMounts = false)
    {
        return Run(args, "export RIG_INSPECTOR_STATE_DIR='" + m_State + "'\n" + prelude, "", bPrivateMounts);
    }
    std::vector<nlohmann::json> History() const
    {
        std::vector<nlohmann::json> runs;
        std::istringstream lines(TempDir::Read(m_State + "/history.jsonl"));
        for (std::string line; std::getline(lines, line);)
            runs.push_back(nlohmann::json::parse(line));
        return runs;
    }
    std::string m_State = m_Root + "/state";
};

std::string Embedded(const std::string& bundle)
{
    const std::string open = "<script type=\"application/json\" id=\"rig-results\">";
    const std::size_t start = bundle.find(open);
    if (start == std::string::npos)
        return {};
    std::string text =
        bundle.substr(start + open.size(), bundle.find("</script>", start) - start - open.size());
    for (std::size_t at = 0; (at = text.find("<\\/", at)) != std::string::npos; ++at)
        text.erase(at + 1, 1);
    return text;
}
} // namespace

TEST_F(BundleCliTest, EachRunIsKeptAndTheBundleCarriesTheJsonOfItsRun)
{
    const e2e::CliRun first = RunKept("--quiet");
    ASSERT_LE(first.status, 1) << first.err;
    const e2e::CliRun second = RunKept("--quiet --json result.json --bundle bundle.html");
    ASSERT_LE(second.status, 1) << second.err;

    const std::string json = TempDir::Read(m_Dir + "/result.json");
    const std::string bundle = TempDir::Read(m_Dir + "/bundle.html");
    EXPECT_EQ(Embedded(bundle), json);
    const std::vector<nlohmann::json> runs = History();
    ASSERT_EQ(runs.size(), 2u);
    EXPECT_EQ(runs.back(), nlohmann::json::parse(json));
    EXPECT_EQ(runs.back()["tool"], "rig_inspector_cli");
    EXPECT_NE(bundle.find("The last 2 runs kept on this computer"), std::string::npos);

    const e2e::CliRun listed = RunKept("--history");
    EXPECT_EQ(listed.status, 0) << listed.err;
    EXPECT_EQ(listed.out.rfind("Runs kept in " + m_State + "/history.jsonl: 2\nFinished", 0), 0u)
        << listed.out;
    EXPECT_EQ(History().size(), 2u); // listing is not a run
}

// A torn last line is left out and the next run's line is whole; a folder
// that cannot be written is a warning and a diagnostic, and the run's other
// outputs and its exit status are what they would have been.
TEST_F(BundleCliTest, ATornLineAndAReadOnlyFolderLeaveTheRunGoing)
{
    std::filesystem::create_directories(m_State);
    TempDir::Write(m_State + "/history.jsonl", "{\"tool\": \"rig_inspector_cli\", \"finished_at\": \"2026-");
    const e2e::CliRun repaired = RunKept("--quiet");
    ASSERT_LE(repaired.status, 1) << repaired.err;
    ASSERT_EQ(History().size(), 1u);
    EXPECT_EQ(repaired.err.find("history_write_failed"), std::string::npos) << repaired.err;

    // Read-only for root too: a read-only bind mount, gone with the run.
    const e2e::CliRun readOnly =
        RunKept("--quiet --json result.json --bundle bundle.html",
                "mount --bind state state && mount -o remount,bind,ro state || exit 98", true);
    EXPECT_EQ(readOnly.status, repaired.status) << readOnly.err;
    EXPECT_NE(readOnly.err.find("[history_write_failed]"), std::string::npos) << readOnly.err;
    bool bListed = false;
    for (const auto& d : readOnly.json["diagnostics"])
        bListed = bListed || d["code"] == "history_write_failed";
    EXPECT_TRUE(bListed) << readOnly.json.dump();
    EXPECT_EQ(History().size(), 1u);
    // The bundle still has this run, beside the one kept.
    EXPECT_NE(TempDir::Read(m_Dir + "/bundle.html").find("The last 2 runs kept"), std::string::npos);
}
