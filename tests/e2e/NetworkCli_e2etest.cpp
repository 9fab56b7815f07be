// rig_inspector_cli's network steps against rig_test_server's normal and
// faulty behaviours: the exact report lines each scenario must give. Nothing
// listening is the app's CLI test.
#include "CliHarness.h"
#include "tests/server/TestSockets.h"

namespace
{
using e2e::kTcpFailedStart;
using e2e::kTcpIncomplete;
using e2e::kUdpFailed;
using nlohmann::json;

const std::string kAllLost =
    "<br>\treceived :   0 packets<font color=red><br>\t    loss :  10 packets (100%)</font>";

struct Scenario
{
    const char* name;
    std::vector<std::string> serverArgs;
    std::vector<std::string> present, absent = {};
    std::vector<std::pair<std::string, json>> fields = {}; // JSON pointer, value
    bool bFails = true;                                    // a failed network check makes the exit status 1
    double minUpload = 0, minDownload = 0;                 // KB/Sec; 0.01 is the least above 0.00
    bool bHoldPongPort = false;
};

const Scenario kScenarios[] = {
    {"GoodServer",
     {},
     {e2e::kTcpConnected, e2e::kUdpAllAnswered,
      "<br>Checking UDP port" + std::string(31, '.') + "<font color=blue>passed.</font>"},
     {kTcpIncomplete, kUdpFailed},
     {{"/checks/tcp/verdict", "passed"},
      {"/checks/udp/verdict", "passed"},
      {"/checks/ports/verdict", "passed"}},
     false,
     32.0,
     32.0},
    {"SilentServer",
     {"--silent"},
     {e2e::kTcpConnected, "<br>\tDownload Speed :  0.00 KB/Sec" + kTcpIncomplete + kTcpFailedStart},
     {},
     {{"/checks/tcp/upload_completed", true}}},
    {"ServerClosingAfter100KB",
     {"--close-after", "102400"},
     {e2e::kTcpConnected},
     {},
     {{"/checks/tcp/upload_completed", true}},
     false,
     0,
     0.01},
    // Timed out in the middle of a block, measured over what went out: not a
    // failed send.
    {"ServerThatStopsReading",
     {"--stop-reading-after", "65536"},
     {e2e::kTcpConnected, kTcpIncomplete + kTcpFailedStart},
     {},
     {{"/checks/tcp/upload_completed", false}},
     true,
     0.01},
    // The last blocks fit in the client's send buffer, so every send succeeds;
    // they never reach the server, and an upload is complete only once they
    // have.
    {"UploadStuckInTheSendBuffer",
     {"--stop-reading-after", std::to_string(524288 - 8192)},
     {e2e::kTcpConnected, kTcpIncomplete + kTcpFailedStart},
     {},
     {{"/checks/tcp/upload_completed", false}},
     true,
     0.01},
    {"LossyServer",
     {"--drop-every", "2"},
     {"<br>\treceived :   5 packets<font color=red><br>\t    loss :   5 packets (50%)</font>",
      kUdpFailed +
          "<br><font color=black>1. Please go to <a href=\"http://portforward-guide.example/\" "
          "target=_blank>portforward-guide.example</a>.</font>"
          "<br><font color=black>2. Click on the router section or go <a "
          "href=\"http://portforward-guide.example/english/routers/port_forwarding/"
          "routerindex.htm\" target=_blank>here</a>.</font>"
          "<br><font color=black>3. Choose your router's make and model.</font>"
          "<br><font color=black>4. Choose Dunmore Nine.</font>"
          "<br><font color=black>5. Follow the instructions on the page to forward the ports.</font>"},
     {},
     {{"/checks/udp/lost", 5}, {"/checks/udp/verdict", "failed"}}},
    {"PortTwentyThousandTaken",
     {},
     {kAllLost, kUdpFailed,
      "<br>Checking UDP port<font color=red>x</font>" + std::string(30, '.') +
          "failed. 20000 <font color=red>ports are already used.</font>"},
     {},
     {{"/checks/ports/busy_ports", json::array({20000})}},
     true,
     0,
     0,
     true},
};

class NetworkCliTest : public e2e::CliTest, public ::testing::WithParamInterface<Scenario>
{
};

TEST_P(NetworkCliTest, ReportHasTheScenariosLines)
{
    const Scenario& s = GetParam();
    const testnet::Fd held = s.bHoldPongPort ? testnet::BindUdp("0.0.0.0", 20000) : testnet::Fd();
    ASSERT_EQ(held.Get() >= 0, s.bHoldPongPort);
    StartServer(s.serverArgs);
    const e2e::CliRun run = Run();
    EXPECT_TRUE(!s.bFails || run.status == 1) << run.status << run.err;
    for (const std::string& line : s.present)
        EXPECT_TRUE(run.Has(line)) << line << "\nin: " << run.report;
    for (const std::string& line : s.absent)
        EXPECT_FALSE(run.Has(line)) << line;
    EXPECT_GE(run.Rate("Upload"), s.minUpload);
    EXPECT_GE(run.Rate("Download"), s.minDownload);
    for (const auto& [pointer, value] : s.fields)
        EXPECT_EQ(run.json.value(json::json_pointer(pointer), json()), value) << pointer;
}

INSTANTIATE_TEST_SUITE_P(Scenarios, NetworkCliTest, ::testing::ValuesIn(kScenarios),
                         [](const auto& info) { return std::string(info.param.name); });
} // namespace
