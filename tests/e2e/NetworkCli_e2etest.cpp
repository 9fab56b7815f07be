// rig_inspector_cli's network steps against rig_test_server's normal and
// faulty behaviours: the measurements and verdicts each scenario must give.
// Nothing listening is the app's CLI test.
#include "CliHarness.h"
#include "tests/server/TestSockets.h"

namespace
{
using nlohmann::json;

// What the server's behaviour makes of each measurement; the report lines
// those figures give are pinned by the network report's unit test.
struct Scenario
{
    const char* name;
    std::vector<std::string> serverArgs;
    std::vector<std::pair<std::string, json>> fields; // JSON pointer under /checks, value
    bool bFails = true;                               // a failed network check makes the exit status 1
    double minUpload = 0, minDownload = 0;            // KB/Sec; 0.005 prints as 0.01, the least above 0.00
    bool bHoldPongPort = false;
};

const Scenario kScenarios[] = {
    {"GoodServer",
     {},
     {{"/tcp/verdict", "passed"},
      {"/udp/answered", 10},
      {"/udp/verdict", "passed"},
      {"/ports/verdict", "passed"}},
     false,
     32.0,
     32.0},
    {"SilentServer",
     {"--silent"},
     {{"/tcp/connected", true},
      {"/tcp/upload_completed", true},
      {"/tcp/download_kb_per_sec", 0.0},
      {"/tcp/verdict", "failed"}}},
    {"ServerClosingAfter100KB",
     {"--close-after", "102400"},
     {{"/tcp/upload_completed", true}},
     false,
     0,
     0.005},
    // Timed out in the middle of a block, measured over what went out: not a
    // failed send.
    {"ServerThatStopsReading",
     {"--stop-reading-after", "65536"},
     {{"/tcp/upload_completed", false}, {"/tcp/verdict", "failed"}},
     true,
     0.005},
    // The last blocks fit in the client's send buffer, so every send succeeds;
    // they never reach the server, and an upload is complete only once they
    // have.
    {"UploadStuckInTheSendBuffer",
     {"--stop-reading-after", std::to_string(524288 - 8192)},
     {{"/tcp/upload_completed", false}, {"/tcp/verdict", "failed"}},
     true,
     0.005},
    {"LossyServer", {"--drop-every", "2"}, {{"/udp/lost", 5}, {"/udp/verdict", "failed"}}},
    {"PortTwentyThousandTaken",
     {},
     {{"/udp/answered", 0}, {"/udp/verdict", "failed"}, {"/ports/busy_ports", json::array({20000})}},
     true,
     0,
     0,
     true},
};

class NetworkCliTest : public e2e::CliTest, public ::testing::WithParamInterface<Scenario>
{
};

TEST_P(NetworkCliTest, MeasurementsAndVerdictsFollowTheServer)
{
    const Scenario& s = GetParam();
    const testnet::Fd held = s.bHoldPongPort ? testnet::BindUdp("0.0.0.0", 20000) : testnet::Fd();
    ASSERT_EQ(held.Get() >= 0, s.bHoldPongPort);
    StartServer(s.serverArgs);
    const e2e::CliRun run = Run();
    EXPECT_TRUE(!s.bFails || run.status == 1) << run.status << run.err;
    const json& checks = run.json["checks"];
    for (const auto& [pointer, value] : s.fields)
        EXPECT_EQ(checks.value(json::json_pointer(pointer), json()), value)
            << pointer << "\nin: " << run.report;
    EXPECT_GE(checks["tcp"]["upload_kb_per_sec"].get<double>(), s.minUpload);
    EXPECT_GE(checks["tcp"]["download_kb_per_sec"].get<double>(), s.minDownload);
}

INSTANTIATE_TEST_SUITE_P(Scenarios, NetworkCliTest, ::testing::ValuesIn(kScenarios),
                         [](const auto& info) { return std::string(info.param.name); });
} // namespace
