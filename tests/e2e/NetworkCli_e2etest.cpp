// rig_inspector_cli's network steps against rig_test_server's normal and
// faulty behaviours: the exact report lines each scenario must give.
#include <gtest/gtest.h>

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>

#include <nlohmann/json.hpp>

#include "tests/server/ServerProcess.h"

namespace
{
// Bounds one run of the whole sequence; the slowest scenario needs about
// 35 s (connect, two 10 s phases, the 5 s echo test).
constexpr int kRunLimitSeconds = 120;

const std::string kTcpIncomplete =
    "<br><font color=red>We could not finish the speed test completely.</font>";
const std::string kTcpFailedStart = "<br><font color=red>Internet connection speed test failed.";
const std::string kUdpFailed =
    "<br><font color=red>UDP test failed. UDP ports for the game may be blocked.</font>";
const std::string kBlueNoLoss = "<font color=blue><br>\t    loss :   0 packets (0%)</font>";

std::string ReadFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

struct CliRun
{
    int status = -1;
    std::string report;
    nlohmann::json json;
};

class NetworkCliTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        char pattern[] = "/tmp/rig_net_e2e_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        m_Root = pattern;
        m_Dir = m_Root + "/patcher";
        std::filesystem::create_directories(m_Dir);
        std::filesystem::create_directories(m_Root + "/game");
    }
    void TearDown() override
    {
        m_Server.reset();
        std::filesystem::remove_all(m_Root);
    }

    void StartServer(std::vector<std::string> args)
    {
        // A pong inside its ping's own millisecond has a round trip of 0 and
        // is ignored by design: a small delay keeps every run countable.
        args.insert(args.begin(), {"--pong-delay", "2"});
        m_Server = std::make_unique<ServerProcess>(args);
        ASSERT_TRUE(m_Server->WaitUntilReady()) << m_Server->GetStderr();
    }

    CliRun Run()
    {
        const std::string command = "cd '" + m_Dir + "' && timeout -k 5 " + std::to_string(kRunLimitSeconds) +
                                    " '" RIG_CLI_PATH "' --quiet --report report.html --json result.json"
                                    " > /dev/null 2> '" +
                                    m_Root + "/err.txt' < /dev/null";
        const int raw = std::system(command.c_str());
        CliRun run;
        run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
        run.report = ReadFile(m_Dir + "/report.html");
        const std::string json = ReadFile(m_Dir + "/result.json");
        if (!json.empty())
            run.json = nlohmann::json::parse(json, nullptr, false);
        return run;
    }

    static bool Has(const CliRun& run, const std::string& text)
    {
        return run.report.find(text) != std::string::npos;
    }

    /// The KB/Sec figure of "<br>\t<what> Speed : %5.2f KB/Sec".
    static double Rate(const CliRun& run, const std::string& what)
    {
        const std::string key = "<br>\t" + what + " Speed : ";
        const auto at = run.report.find(key);
        return at == std::string::npos ? -1.0 : std::atof(run.report.c_str() + at + key.size());
    }

    std::string m_Root, m_Dir;
    std::unique_ptr<ServerProcess> m_Server;
};

TEST_F(NetworkCliTest, GoodServerPassesBothTests)
{
    StartServer({});
    const CliRun run = Run();
    EXPECT_TRUE(Has(run, "<br>Checking Internet Speed Test(127.0.0.1:9999)...<br>\tconnected to server"))
        << run.report;
    EXPECT_GE(Rate(run, "Upload"), 32.0);
    EXPECT_GE(Rate(run, "Download"), 32.0);
    EXPECT_FALSE(Has(run, kTcpIncomplete));
    EXPECT_TRUE(
        Has(run, "<br>Checking UDP(127.0.0.1:9998)...<br>\t    send :  10 packets<br>\treceived :  10 "
                 "packets" +
                     kBlueNoLoss));
    EXPECT_FALSE(Has(run, kUdpFailed));
    EXPECT_TRUE(Has(run, "<br>Checking UDP port" + std::string(31, '.') + "<font color=blue>passed.</font>"));
    EXPECT_EQ(run.json["checks"]["tcp"]["verdict"], "passed");
    EXPECT_EQ(run.json["checks"]["udp"]["verdict"], "passed");
    EXPECT_EQ(run.json["checks"]["ports"]["verdict"], "passed");
}

TEST_F(NetworkCliTest, NothingListeningFailsBothTests)
{
    const CliRun run = Run();
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(Has(run, "<br><font color=red>\tnot connected to server</font><br>\tUpload Speed :  0.00 "
                         "KB/Sec<br>\tDownload Speed :  0.00 KB/Sec" +
                             kTcpIncomplete + kTcpFailedStart))
        << run.report;
    EXPECT_TRUE(
        Has(run, "<br>\treceived :   0 packets<font color=red><br>\t    loss :  10 packets (100%)</font>"));
    EXPECT_TRUE(Has(run, kUdpFailed));
    EXPECT_EQ(run.json["checks"]["tcp"]["verdict"], "failed");
    EXPECT_EQ(run.json["checks"]["udp"]["verdict"], "failed");
}

TEST_F(NetworkCliTest, SilentServerEndsTheDownloadAtItsLimit)
{
    StartServer({"--silent"});
    const CliRun run = Run();
    EXPECT_TRUE(Has(run, "<br>\tconnected to server")) << run.report;
    EXPECT_TRUE(Has(run, "<br>\tDownload Speed :  0.00 KB/Sec" + kTcpIncomplete + kTcpFailedStart));
    EXPECT_EQ(run.json["checks"]["tcp"]["upload_completed"], true);
}

TEST_F(NetworkCliTest, ServerClosingAfter100KBIsMeasuredOverThem)
{
    StartServer({"--close-after", "102400"});
    const CliRun run = Run();
    EXPECT_TRUE(Has(run, "<br>\tconnected to server")) << run.report;
    EXPECT_EQ(run.json["checks"]["tcp"]["upload_completed"], true);
    EXPECT_GT(Rate(run, "Download"), 0.0);
    EXPECT_GT(run.json["checks"]["tcp"]["download_bytes_per_sec"].get<double>(), 0.0);
}

TEST_F(NetworkCliTest, ServerThatStopsReadingEndsTheUploadWithinItsLimit)
{
    StartServer({"--stop-reading-after", "65536"});
    const CliRun run = Run();
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(Has(run, "<br>\tconnected to server")) << run.report;
    EXPECT_EQ(run.json["checks"]["tcp"]["upload_completed"], false);
    // Timed out mid-phase, measured over what went out: not a failed send.
    EXPECT_GT(Rate(run, "Upload"), 0.0);
    EXPECT_TRUE(Has(run, kTcpIncomplete + kTcpFailedStart));
}

TEST_F(NetworkCliTest, LossyServerPrintsTheFailureAndTheInstructions)
{
    StartServer({"--drop-every", "2"});
    const CliRun run = Run();
    EXPECT_TRUE(
        Has(run, "<br>\treceived :   5 packets<font color=red><br>\t    loss :   5 packets (50%)</font>"))
        << run.report;
    EXPECT_TRUE(
        Has(run, kUdpFailed +
                     "<br><font color=black>1. Please go to <a href=\"http://portforward-guide.example/\" "
                     "target=_blank>portforward-guide.example</a>.</font>"
                     "<br><font color=black>2. Click on the router section or go <a "
                     "href=\"http://portforward-guide.example/english/routers/port_forwarding/"
                     "routerindex.htm\" target=_blank>here</a>.</font>"
                     "<br><font color=black>3. Choose your router's make and model.</font>"
                     "<br><font color=black>4. Choose Dunmore Nine.</font>"
                     "<br><font color=black>5. Follow the instructions on the page to forward the "
                     "ports.</font>"));
    EXPECT_EQ(run.json["checks"]["udp"]["lost"], 5);
    EXPECT_EQ(run.json["checks"]["udp"]["verdict"], "failed");
}

TEST_F(NetworkCliTest, PortTwentyThousandTakenLosesEveryPingAndIsListed)
{
    const int held = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(20000);
    addr.sin_addr.s_addr = htonl(INADDR_ANY);
    ASSERT_EQ(::bind(held, reinterpret_cast<const sockaddr*>(&addr), sizeof(addr)), 0);
    StartServer({});
    const CliRun run = Run();
    ::close(held);
    EXPECT_TRUE(
        Has(run, "<br>\treceived :   0 packets<font color=red><br>\t    loss :  10 packets (100%)</font>"))
        << run.report;
    EXPECT_TRUE(Has(run, kUdpFailed));
    EXPECT_TRUE(Has(run, "<br>Checking UDP port<font color=red>x</font>" + std::string(30, '.') +
                             "failed. 20000 <font color=red>ports are already used.</font>"));
    EXPECT_EQ(run.json["checks"]["ports"]["busy_ports"], nlohmann::json::array({20000}));
}
} // namespace
