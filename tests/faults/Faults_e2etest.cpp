// rig_inspector_cli and rig_test_server under the faults a player's machine
// and a public server meet: junk on the pong port, a flood of idle
// connections, a settings file that is junk or huge, an options folder that
// is missing, read-only or on a full disk. Each run must end, keep every file
// it does not own whole, and say in its report what happened.
#include <sys/resource.h>

#include <atomic>
#include <random>
#include <thread>

#include "tests/e2e/CliHarness.h"
#include "tests/server/TestSockets.h"

namespace
{
class FaultsTest : public e2e::CliTest
{
protected:
    /// The checks ran to their end: the last step is in the report.
    static void ExpectFinished(const e2e::CliRun& run, int optionsFailedStatus = 1)
    {
        EXPECT_TRUE(run.status == 0 || run.status == 1 || run.status == optionsFailedStatus)
            << run.status << run.err; // not timeout's 124
        EXPECT_TRUE(run.Has("<br>Checking UDP port")) << run.report;
        EXPECT_TRUE(run.report.ends_with("</body></html>")) << run.report;
    }

    /// The diagnostics but those of the video probe, which depend on the machine.
    static nlohmann::json SettingsDiagnostics(const e2e::CliRun& run)
    {
        nlohmann::json kept = nlohmann::json::array();
        for (const auto& d : run.json["diagnostics"])
        {
            if (!d["code"].get<std::string>().starts_with("video_"))
                kept.push_back(d);
        }
        return kept;
    }

    /// The network steps passed against the server at its default ports.
    static void ExpectNetworkPassed(const e2e::CliRun& run)
    {
        EXPECT_EQ(run.json["checks"]["tcp"]["verdict"], "passed") << run.report;
        EXPECT_EQ(run.json["checks"]["udp"]["answered"], 10) << run.report;
    }
};

// Hundreds of junk datagrams arrive per turn of the echo test, which reads one
// a turn: the run ends in its time, the junk is counted and never taken for a
// pong, and the diagnostics (never the report) say what came instead.
TEST_F(FaultsTest, JunkFloodOnThePongPortIsCountedAndNamed)
{
    StartServer();
    std::atomic<bool> bStop{false};
    std::atomic<int> sent{0};
    // Empty and short datagrams (under the 8-byte header), random bytes and
    // pong-shaped text that answers no ping; paced in small bursts, bounded.
    std::thread flood(
        [&]
        {
            const testnet::Fd fd = testnet::BindUdp("127.0.0.1", 0);
            std::mt19937 random(7);
            const testnet::Bytes fakePong = testnet::Utf16("pong 9999 12345");
            for (int n = 0; !bStop && n < 400000; ++n)
            {
                testnet::Bytes bytes(static_cast<std::size_t>(n % 24));
                for (auto& byte : bytes)
                    byte = static_cast<std::uint8_t>(random());
                const testnet::Bytes& datagram = n % 10 == 9 ? fakePong : bytes;
                sent += testnet::SendDatagram(fd, 20000, datagram.data(), datagram.size()) ? 1 : 0;
                if (n % 20 == 19)
                    std::this_thread::sleep_for(std::chrono::milliseconds(2)); // pacing, not waiting
            }
        });
    const e2e::CliRun run = Run();
    bStop = true;
    flood.join();
    ASSERT_GT(sent, 1000);
    ExpectFinished(run);
    const auto& udp = run.json["checks"]["udp"];
    EXPECT_GT(udp["ignored_datagrams"].get<int>(), 0);
    EXPECT_EQ(udp["sent"], 10) << run.report;
    EXPECT_EQ(udp["answered"].get<int>() + udp["lost"].get<int>(), 10) << run.report;
    const auto& refused = udp["refused"];
    EXPECT_EQ(refused["malformed"].get<int>() + refused["unknown_sequence"].get<int>() +
                  refused["bad_round_trip"].get<int>(),
              udp["ignored_datagrams"].get<int>());
    EXPECT_NE(run.err.find("datagrams that answered no ping came to port 20000"), std::string::npos)
        << run.err;
    EXPECT_FALSE(run.Has("answered no ping")) << run.report;
}

// More idle connections than the server serves at once cannot lock the
// player's real test out.
TEST_F(FaultsTest, ThousandIdleConnectionsDoNotStopRealTests)
{
    StartServer();
    rlimit limit{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
    limit.rlim_cur = std::max(limit.rlim_cur, std::min<rlim_t>(1100, limit.rlim_max));
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
    std::vector<testnet::Tcp> idle;
    for (int i = 0; i < 1000; ++i)
    {
        idle.push_back(testnet::ConnectTcp(9999));
        ASSERT_TRUE(idle.back()->IsConnected()) << i;
    }
    const e2e::CliRun run = Run();
    idle.clear();
    ExpectFinished(run);
    ExpectNetworkPassed(run);
}

// Junk bytes, NULs, a UTF-16 mark with an odd length, seventeen megabytes of
// lines (past the reader's bound): no key of ours is found, every value is its
// default, the file is read, never written, and only the oversized one is
// named in the diagnostics.
TEST_F(FaultsTest, BrokenSettingsFilesGiveTheDefaults)
{
    StartServer();
    std::mt19937 random(11);
    std::string huge = "[tcp]\r\nport=1\r\n[udp]\r\nport=1\r\n";
    while (huge.size() < 17 * 1024 * 1024)
        huge += "k=v\r\n";
    const std::pair<std::string, int> cases[] = {{"", 4001}, {"\xFF\xFE", 4001}, {huge, 0}};
    for (auto [settings, nJunk] : cases)
    {
        for (int i = 0; i < nJunk; ++i)
            settings.push_back(static_cast<char>(random()));
        TempDir::Write(m_Dir + "/rig_inspector.ini", settings);
        const e2e::CliRun run = Run();
        ExpectFinished(run);
        ExpectNetworkPassed(run);
        EXPECT_TRUE(TempDir::Read(m_Dir + "/rig_inspector.ini") == settings);
        const nlohmann::json tooLarge = {
            {{"code", "settings_file_unreadable"},
             {"message",
              "The settings file ./rig_inspector.ini cannot be read (it is larger than 16 MiB), so "
              "every setting takes its default."}}};
        EXPECT_EQ(SettingsDiagnostics(run), nJunk == 0 ? tooLarge : nlohmann::json::array());
    }
}

// Settings that cannot work as given are named, each once, in the JSON and as
// warnings on standard error; the report itself stays as it always was.
TEST_F(FaultsTest, SettingsThatCannotWorkAreDiagnosed)
{
    TempDir::Write(
        m_Dir + "/rig_inspector.ini",
        "[tcp]\nhost=localhost\nport=70000\n[udp]\nhost=\ncheck_port_min=20010\ncheck_port_max=20000\n");
    const e2e::CliRun run = Run();
    ExpectFinished(run);
    std::vector<std::string> codes;
    for (const auto& d : SettingsDiagnostics(run))
        codes.push_back(d["code"]);
    EXPECT_EQ(codes, (std::vector<std::string>{"host_not_ipv4", "port_out_of_range", "host_not_ipv4",
                                               "port_range_reversed"}));
    EXPECT_NE(run.err.find("rig_inspector_cli: warning: The [tcp] host \"localhost\" is not an IPv4 address"),
              std::string::npos)
        << run.err;
    EXPECT_TRUE(run.Has("<br>Checking UDP port<font color=blue>passed.</font>")) << run.report;
}

// The options file cannot be written: the run says so (a diagnostic and exit
// status 4), and the file the game already had stays whole with no temporary
// beside it. Root ignores permission bits, so read-only is a read-only bind
// mount, and the full disk a tiny tmpfs; both live only in the run's mount
// namespace, so the script looks at the folder before leaving. A folder that
// is read-only around a writable file gets the file rewritten in place, and
// cut where the new text is shorter (the long old value).
TEST_F(FaultsTest, OptionsFolderThatCannotTakeTheFileKeepsTheOldOne)
{
    StartServer();
    const std::string kOld =
        "[video]\r\nshadow=" + std::string(40, '0') + "\r\naudience=0\r\n\r\n[audio]\r\nvolume=7\r\n";
    TempDir::Write(m_Root + "/old.ini", kOld);
    const struct
    {
        const char* name;
        std::string prelude, option, listing;
    } cases[] = {
        {"missing", "rmdir game || exit 99", "", "no folder\n"},
        {"read-only",
         "cp old.ini game/option.ini && mount --bind game game && mount -o remount,bind,ro game || exit 99",
         kOld, "option.ini\n"},
        {"full",
         "mount -t tmpfs -o size=64k tmpfs game && cp old.ini game/option.ini || exit 99\n"
         "dd if=/dev/zero of=game/filler bs=4096 count=64 2>/dev/null",
         kOld, "filler\noption.ini\n"},
        {"folder read-only, file writable",
         "cp old.ini game/option.ini && cp old.ini rw.ini && mount --bind game game && "
         "mount -o remount,bind,ro game && mount --bind rw.ini game/option.ini || exit 99",
         "(the recommendation)", "option.ini\n"},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.name);
        const e2e::CliRun run = Run(e2e::kReportArgs + " --accept", c.prelude,
                                    "cat game/option.ini > after.ini; ls -A game > listing.txt 2>/dev/null "
                                    "|| echo no folder > listing.txt",
                                    true);
        const bool bWritable = c.option == "(the recommendation)";
        ExpectFinished(run, 4);
        EXPECT_EQ(run.status == 4, !bWritable) << run.err;
        EXPECT_EQ(run.err.find("The graphic options could not be written to ../game/option.ini") !=
                      std::string::npos,
                  !bWritable)
            << run.err;
        EXPECT_EQ(run.json["options_written"], bWritable);
        const auto& rec = run.json["recommendation"];
        const auto value = [&](const char* key) { return std::to_string(rec[key].get<int>()); };
        EXPECT_EQ(TempDir::Read(m_Root + "/after.ini"),
                  bWritable ? "[video]\r\nshadow=" + value("shadow") + "\r\naudience=" + value("audience") +
                                  "\r\nevent_screen=" + value("event_screen") +
                                  "\r\nchar_lod=" + value("char_lod") + "\r\n\r\n[audio]\r\nvolume=7\r\n"
                            : c.option);
        EXPECT_EQ(TempDir::Read(m_Root + "/listing.txt"), c.listing);
        std::filesystem::create_directories(m_Game);
    }
}
} // namespace
