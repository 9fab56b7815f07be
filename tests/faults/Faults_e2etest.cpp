// rig_inspector_cli and rig_test_server under the faults a player's machine
// and a public server meet: junk on the pong port, a flood of idle
// connections, a settings file that is junk or huge, an options folder that
// is missing, read-only or on a full disk. Each run must end, keep every file
// it does not own whole, and say in its report what happened.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <sstream>
#include <thread>

#include <nlohmann/json.hpp>

#include "tests/server/ServerProcess.h"

namespace
{
// Bounds one run of the whole sequence; a good one takes a few seconds, the
// slowest fault here (nothing answering) about 35 s.
constexpr int kRunLimitSeconds = 120;
constexpr int kTimedOut = 124; // timeout(1)'s status

const std::string kTcpIncomplete =
    "<br><font color=red>We could not finish the speed test completely.</font>";
const std::string kBlueNoLoss = "<font color=blue><br>\t    loss :   0 packets (0%)</font>";
const std::string kOptionsNotWritten = "rig_inspector_cli: could not write ../game/option.ini";
// An options file the game already had, with a section we never touch.
const std::string kOldOptions = "[video]\r\nshadow=0\r\naudience=0\r\n\r\n[audio]\r\nvolume=7\r\n";

std::string ReadFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

void WriteFile(const std::string& path, const std::string& content)
{
    std::ofstream(path, std::ios::binary) << content;
}

struct CliRun
{
    int status = -1;
    std::string report, err;
    nlohmann::json json;

    bool Has(const std::string& text) const { return report.find(text) != std::string::npos; }
};

class FaultsTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        char pattern[] = "/tmp/rig_faults_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        m_Root = pattern;
        m_Dir = m_Root + "/patcher";
        m_Game = m_Root + "/game";
        std::filesystem::create_directories(m_Dir);
        std::filesystem::create_directories(m_Game);
    }
    void TearDown() override
    {
        m_Server.reset();
        std::filesystem::remove_all(m_Root);
    }

    void StartServer()
    {
        // A pong inside its ping's own millisecond is ignored by design; a
        // small delay keeps every run countable.
        m_Server = std::make_unique<ServerProcess>(std::vector<std::string>{"--pong-delay", "2"});
        ASSERT_TRUE(m_Server->WaitUntilReady()) << m_Server->GetStderr();
    }

    /// Runs the CLI in the patcher folder from a script of its own. prelude
    /// runs first and must succeed; postlude runs after the CLI, which keeps
    /// its exit status. With bPrivateMounts the script gets a mount namespace
    /// of its own, so its mounts vanish with it.
    CliRun Run(const std::string& args, const std::string& prelude = "", const std::string& postlude = "",
               bool bPrivateMounts = false)
    {
        const std::string script = m_Root + "/run.sh";
        WriteFile(script, "cd '" + m_Root + "' || exit 99\n" + prelude + "\ncd patcher || exit 99\n" +
                              "timeout -k 5 " + std::to_string(kRunLimitSeconds) +
                              " '" RIG_CLI_PATH "' --quiet --report report.html --json result.json " + args +
                              " > /dev/null 2> ../err.txt < /dev/null\nstatus=$?\ncd .. || exit 99\n" +
                              postlude + "\nexit $status\n");
        const std::string command =
            (bPrivateMounts ? "unshare --mount --propagation private sh '" : "sh '") + script + "'";
        const int raw = std::system(command.c_str());
        CliRun run;
        run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
        run.report = ReadFile(m_Dir + "/report.html");
        run.err = ReadFile(m_Root + "/err.txt");
        const std::string json = ReadFile(m_Dir + "/result.json");
        if (!json.empty())
            run.json = nlohmann::json::parse(json, nullptr, false);
        return run;
    }

    /// The checks ran to their end: the last step's verdict is in the report.
    static void ExpectFinished(const CliRun& run)
    {
        EXPECT_NE(run.status, kTimedOut) << "the run did not end within its limit";
        EXPECT_TRUE(run.status == 0 || run.status == 1) << run.status << run.err;
        EXPECT_TRUE(run.Has("<br>Checking UDP port")) << run.report;
        EXPECT_TRUE(run.report.ends_with("</body></html>")) << run.report;
    }

    /// The network steps passed against the reference server at its defaults.
    static void ExpectNetworkPassed(const CliRun& run)
    {
        EXPECT_TRUE(run.Has("<br>Checking Internet Speed Test(127.0.0.1:9999)...<br>\tconnected to server"))
            << run.report;
        EXPECT_FALSE(run.Has(kTcpIncomplete));
        EXPECT_TRUE(
            run.Has("<br>Checking UDP(127.0.0.1:9998)...<br>\t    send :  10 packets<br>\treceived :  "
                    "10 packets" +
                    kBlueNoLoss));
        EXPECT_EQ(run.json["checks"]["tcp"]["verdict"], "passed");
        EXPECT_EQ(run.json["checks"]["udp"]["verdict"], "passed");
    }

    std::string m_Root, m_Dir, m_Game;
    std::unique_ptr<ServerProcess> m_Server;
};

/// Sends junk to 127.0.0.1:20000 until stopped: empty and short datagrams
/// (under the 8-byte header), random bytes, and pong-shaped text that answers
/// no ping. Paced in small bursts so it outruns one read per turn by far
/// without starving the machine; bounded in count.
class JunkFlood
{
public:
    JunkFlood() : m_Thread([this] { Send(); }) {}
    ~JunkFlood() { Stop(); }
    void Stop()
    {
        m_bStop = true;
        if (m_Thread.joinable())
            m_Thread.join();
    }
    int Sent() const { return m_Sent; }

private:
    void Send()
    {
        const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_port = htons(20000);
        to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        std::mt19937 random(7);
        const std::u16string fakePong = u"pong 9999 12345";
        constexpr int kMaxDatagrams = 400000;
        for (int n = 0; !m_bStop && n < kMaxDatagrams; ++n)
        {
            char bytes[64];
            std::size_t size = static_cast<std::size_t>(n % 24);
            for (std::size_t i = 0; i < size; ++i)
                bytes[i] = static_cast<char>(random());
            const void* data = bytes;
            if (n % 10 == 9)
            {
                data = fakePong.data();
                size = fakePong.size() * 2;
            }
            if (::sendto(fd, data, size, 0, reinterpret_cast<const sockaddr*>(&to), sizeof to) >= 0)
                ++m_Sent;
            if (n % 20 == 19)
                std::this_thread::sleep_for(std::chrono::milliseconds(2)); // pacing, not waiting
        }
        ::close(fd);
    }

    std::atomic<bool> m_bStop{false};
    std::atomic<int> m_Sent{0};
    std::thread m_Thread;
};

// Hundreds of junk datagrams arrive per turn of the echo test, which reads one
// datagram a turn: the run ends in its time, nothing crashes, the junk is
// counted and never taken for a pong, and where pongs were lost behind it the
// report says so.
TEST_F(FaultsTest, JunkFloodOnThePongPortIsCountedAndNamed)
{
    StartServer();
    JunkFlood flood;
    const CliRun run = Run("");
    flood.Stop();
    ASSERT_GT(flood.Sent(), 1000);
    ExpectFinished(run);
    const auto& udp = run.json["checks"]["udp"];
    EXPECT_GT(udp["ignored_datagrams"].get<int>(), 0);
    EXPECT_EQ(udp["sent"], 10) << run.report;
    EXPECT_EQ(udp["answered"].get<int>() + udp["lost"].get<int>(), 10) << run.report;
    // Whatever was lost, the report names the junk rather than only blaming
    // blocked ports.
    if (udp["lost"].get<int>() > 0)
    {
        EXPECT_TRUE(run.Has("datagrams that answered no ping came to port 20000.")) << run.report;
    }
}

// More idle connections than the server serves at once: they cannot lock the
// player's real test out, and both tests still pass.
TEST_F(FaultsTest, ThousandIdleConnectionsDoNotStopRealTests)
{
    StartServer();
    rlimit limit{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
    constexpr rlim_t kNeeded = 1100;
    if (limit.rlim_cur < kNeeded)
    {
        limit.rlim_cur = std::min(kNeeded, limit.rlim_max);
        ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
    }
    std::vector<int> idle;
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(9999);
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    for (int i = 0; i < 1000; ++i)
    {
        const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        ASSERT_GE(fd, 0);
        idle.push_back(fd);
        ASSERT_EQ(::connect(fd, reinterpret_cast<const sockaddr*>(&to), sizeof to), 0) << i;
    }
    const CliRun run = Run("");
    for (int fd : idle)
        ::close(fd);
    ExpectFinished(run);
    ExpectNetworkPassed(run);
    EXPECT_EQ(run.json["checks"]["tcp"]["upload_completed"], true);
}

// Junk bytes, NULs and a UTF-16 mark with an odd length: no key is found, so
// every value is its default; the file is read, never written.
TEST_F(FaultsTest, SettingsFileOfBinaryJunkGivesTheDefaults)
{
    StartServer();
    std::mt19937 random(11);
    for (const std::string& start : {std::string(), std::string("\xFF\xFE", 2)})
    {
        std::string junk = start;
        for (int i = 0; i < 4001; ++i)
            junk.push_back(static_cast<char>(random()));
        WriteFile(m_Dir + "/rig_inspector.ini", junk);
        const CliRun run = Run("");
        ExpectFinished(run);
        ExpectNetworkPassed(run);
        EXPECT_EQ(ReadFile(m_Dir + "/rig_inspector.ini"), junk);
    }
}

// Ten megabytes of lines: not a settings file of ours. Start-up stays quick
// (it once took minutes and half a gigabyte) and the defaults apply.
TEST_F(FaultsTest, TenMegabyteSettingsFileGivesTheDefaultsQuickly)
{
    StartServer();
    std::string huge = "[tcp]\r\nport=1\r\n[udp]\r\nport=1\r\n";
    while (huge.size() < 10 * 1024 * 1024)
        huge += "k=v\r\n";
    WriteFile(m_Dir + "/rig_inspector.ini", huge);
    const CliRun run = Run("");
    ExpectFinished(run);
    ExpectNetworkPassed(run);
    EXPECT_EQ(std::filesystem::file_size(m_Dir + "/rig_inspector.ini"), huge.size());
}

TEST_F(FaultsTest, MissingOptionsFolderIsReportedAndNotCreated)
{
    StartServer();
    std::filesystem::remove(m_Game);
    const CliRun run = Run("--accept");
    ExpectFinished(run);
    EXPECT_NE(run.err.find(kOptionsNotWritten), std::string::npos) << run.err;
    EXPECT_EQ(run.json["options_written"], false);
    EXPECT_FALSE(std::filesystem::exists(m_Game));
}

// Root ignores permission bits, so read-only is a read-only bind mount in a
// private mount namespace.
TEST_F(FaultsTest, ReadOnlyOptionsFolderKeepsTheOldFile)
{
    StartServer();
    WriteFile(m_Game + "/option.ini", kOldOptions);
    const CliRun run =
        Run("--accept", "mount --bind game game && mount -o remount,bind,ro game || exit 99", "", true);
    ExpectFinished(run);
    EXPECT_NE(run.err.find(kOptionsNotWritten), std::string::npos) << run.err;
    EXPECT_EQ(run.json["options_written"], false);
    EXPECT_EQ(ReadFile(m_Game + "/option.ini"), kOldOptions);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(m_Game), {}), 1); // no temporary left
}

// A tiny tmpfs filled to the last page: the new content cannot be written,
// and the file the game already had stays whole, with no temporary beside it.
// The tmpfs lives only in the run's mount namespace, so the shell looks at it
// before leaving.
TEST_F(FaultsTest, FullDiskKeepsTheOldOptionsFileWhole)
{
    StartServer();
    WriteFile(m_Root + "/old.ini", kOldOptions);
    const std::string fill =
        "mount -t tmpfs -o size=64k tmpfs game && cp old.ini game/option.ini || exit 99\n"
        "dd if=/dev/zero of=game/filler bs=4096 count=64 2>/dev/null\n";
    const std::string look = "cat game/option.ini > after.ini; ls -A game > listing.txt";
    const CliRun run = Run("--accept", fill, look, true);
    ExpectFinished(run);
    EXPECT_NE(run.err.find(kOptionsNotWritten), std::string::npos) << run.err;
    EXPECT_EQ(run.json["options_written"], false);
    EXPECT_EQ(ReadFile(m_Root + "/after.ini"), kOldOptions);
    EXPECT_EQ(ReadFile(m_Root + "/listing.txt"), "filler\noption.ini\n");
}
} // namespace
