// rig_inspector_cli --extended against the real server: the report is the
// same as without it, the figures land in the JSON, the summary follows the
// report, and a server without the extended service costs little time.
#include <cctype>

#include "tests/e2e/CliHarness.h"

namespace
{
using nlohmann::json;

// The figures a run measures (CPU clock, speeds, round trips) differ between
// any two runs; every text around them must not.
std::string WithoutFigures(const std::string& report)
{
    std::string out;
    for (std::size_t i = 0; i < report.size(); ++i)
    {
        const bool bDigit = std::isdigit(static_cast<unsigned char>(report[i])) != 0;
        const bool bInFigure = !out.empty() && out.back() == '#';
        if (bDigit || (bInFigure && report[i] == '.' && i + 1 < report.size() &&
                       std::isdigit(static_cast<unsigned char>(report[i + 1])) != 0))
        {
            if (!bInFigure)
                out += '#';
        }
        else
            out += report[i];
    }
    return out;
}

class ExtendedCliTest : public e2e::CliTest
{
};

TEST_F(ExtendedCliTest, ReportUnchangedAndFiguresInTheJson)
{
    StartServer({"--drop-every", "10"});
    const e2e::CliRun plain = Run("--report report.html --json result.json --no-color");
    const e2e::CliRun run = Run("--extended --report report.html --json result.json --no-color");
    ASSERT_FALSE(plain.report.empty());
    EXPECT_EQ(WithoutFigures(run.report), WithoutFigures(plain.report));
    EXPECT_EQ(run.status, plain.status);
    EXPECT_FALSE(plain.json.contains("extended"));

    const json& x = run.json["extended"];
    ASSERT_TRUE(x.is_object()) << run.err;
    EXPECT_TRUE(x["failure"].is_null()) << x["failure"];
    EXPECT_LE(x["duration_ms"].get<int>(), 12000);
    EXPECT_GE(x["latency_idle_ms"]["samples"].get<int>(), 85); // 100 probes, every 10th echo dropped
    EXPECT_GE(x["latency_idle_ms"]["p50"].get<double>(), 2.0); // the harness's pong hold
    EXPECT_TRUE(x["latency_loaded_ms"]["grade"].is_string());
    // The drop fault costs every 10th echo (the plain echo test too).
    EXPECT_NEAR(x["udp"]["loss_down_percent"].get<double>(), 10.0, 3.0);
    EXPECT_LT(x["udp"]["loss_up_percent"].get<double>(), 1.0);
    EXPECT_GT(x["throughput"]["download_kb_per_sec"].get<double>(), 1000.0);
    EXPECT_GT(x["throughput"]["upload_kb_per_sec"].get<double>(), 1000.0);
    EXPECT_EQ(x["inbound"]["unsolicited_reached"], true);

    const auto reportEnd = run.out.find("Checking UDP port");
    const auto summary = run.out.find("Extended network test");
    ASSERT_NE(summary, std::string::npos) << run.out;
    EXPECT_GT(summary, reportEnd);
    EXPECT_NE(run.out.find("Bufferbloat grade: "), std::string::npos);
}

TEST_F(ExtendedCliTest, WithoutTheServiceItSaysSoQuickly)
{
    StartServer({"--extended-port", "0"});
    const auto start = std::chrono::steady_clock::now();
    const e2e::CliRun run = Run("--extended --quiet --json result.json");
    const auto took = std::chrono::steady_clock::now() - start;
    const json& x = run.json["extended"];
    EXPECT_TRUE(x["failure"].is_string()) << x;
    EXPECT_TRUE(x["latency_idle_ms"]["p50"].is_null());
    EXPECT_LE(x["duration_ms"].get<int>(), 3000);
    EXPECT_LT(took, std::chrono::seconds(30));
}
} // namespace
