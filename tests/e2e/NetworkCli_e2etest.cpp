// rig_inspector_cli's network steps against rig_test_server's normal and
// faulty behaviours: the exact report lines each scenario must give.
#include <optional>

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
    std::optional<std::vector<std::string>> server; // none: nothing listening
    bool bHoldPongPort;
    bool bFails; // a failed network check makes the exit status 1
    std::vector<std::string> present, absent;
    double minUpload, minDownload; // KB/Sec; 0.01 is the least above 0.00
    std::vector<std::pair<json::json_pointer, json>> fields;
};

const Scenario kScenarios[] = {
    {"GoodServer",
     std::vector<std::string>{},
     false,
     false,
     {e2e::kTcpConnected, e2e::kUdpAllAnswered,
      "<br>Checking UDP port" + std::string(31, '.') + "<font color=blue>passed.</font>"},
     {kTcpIncomplete, kUdpFailed},
     32.0,
     32.0,
     {{json::json_pointer("/checks/tcp/verdict"), "passed"},
      {json::json_pointer("/checks/udp/verdict"), "passed"},
      {json::json_pointer("/checks/ports/verdict"), "passed"}}},
    {"NothingListening",
     std::nullopt,
     false,
     true,
     {"<br><font color=red>\tnot connected to server</font><br>\tUpload Speed :  0.00 KB/Sec<br>\tDownload "
      "Speed "
      ":  0.00 KB/Sec" +
          kTcpIncomplete + kTcpFailedStart,
      kAllLost, kUdpFailed},
     {},
     0,
     0,
     {{json::json_pointer("/checks/tcp/verdict"), "failed"},
      {json::json_pointer("/checks/udp/verdict"), "failed"}}},
    {"SilentServer",
     std::vector<std::string>{"--silent"},
     false,
     true,
     {e2e::kTcpConnected, "<br>\tDownload Speed :  0.00 KB/Sec" + kTcpIncomplete + kTcpFailedStart},
     {},
     0,
     0,
     {{json::json_pointer("/checks/tcp/upload_completed"), true}}},
    {"ServerClosingAfter100KB",
     std::vector<std::string>{"--close-after", "102400"},
     false,
     false,
     {e2e::kTcpConnected},
     {},
     0,
     0.01,
     {{json::json_pointer("/checks/tcp/upload_completed"), true}}},
    // Timed out mid-phase, measured over what went out: not a failed send.
    {"ServerThatStopsReading",
     std::vector<std::string>{"--stop-reading-after", "65536"},
     false,
     true,
     {e2e::kTcpConnected, kTcpIncomplete + kTcpFailedStart},
     {},
     0.01,
     0,
     {{json::json_pointer("/checks/tcp/upload_completed"), false}}},
    {"LossyServer",
     std::vector<std::string>{"--drop-every", "2"},
     false,
     true,
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
     0,
     0,
     {{json::json_pointer("/checks/udp/lost"), 5}, {json::json_pointer("/checks/udp/verdict"), "failed"}}},
    {"PortTwentyThousandTaken",
     std::vector<std::string>{},
     true,
     true,
     {kAllLost, kUdpFailed,
      "<br>Checking UDP port<font color=red>x</font>" + std::string(30, '.') +
          "failed. 20000 <font color=red>ports are already used.</font>"},
     {},
     0,
     0,
     {{json::json_pointer("/checks/ports/busy_ports"), json::array({20000})}}},
};

class NetworkCliTest : public e2e::CliTest, public ::testing::WithParamInterface<Scenario>
{
};

TEST_P(NetworkCliTest, ReportHasTheScenariosLines)
{
    const Scenario& s = GetParam();
    const testnet::Fd held = s.bHoldPongPort ? testnet::BindUdp("0.0.0.0", 20000) : testnet::Fd();
    ASSERT_EQ(held.Get() >= 0, s.bHoldPongPort);
    if (s.server)
        StartServer(*s.server);
    const e2e::CliRun run = Run();
    EXPECT_TRUE(!s.bFails || run.status == 1) << run.status << run.err;
    for (const std::string& line : s.present)
        EXPECT_TRUE(run.Has(line)) << line << "\nin: " << run.report;
    for (const std::string& line : s.absent)
        EXPECT_FALSE(run.Has(line)) << line;
    EXPECT_GE(run.Rate("Upload"), s.minUpload);
    EXPECT_GE(run.Rate("Download"), s.minDownload);
    for (const auto& [pointer, value] : s.fields)
        EXPECT_EQ(run.json.value(pointer, json()), value) << pointer.to_string();
}

INSTANTIATE_TEST_SUITE_P(Scenarios, NetworkCliTest, ::testing::ValuesIn(kScenarios),
                         [](const auto& info) { return std::string(info.param.name); });
} // namespace
