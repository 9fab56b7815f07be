// The speed test's server side, driven through the real binary on its default
// ports (the binary runs in a network namespace of its own). Its fault modes,
// and idle connections making way for their own host's test, are covered
// where the checker meets them, end to end.
#include <atomic>
#include <csignal>
#include <gtest/gtest.h>
#include <thread>

#include "ServerProcess.h"
#include "TestSockets.h"

using namespace testnet;

namespace
{
constexpr std::uint16_t kTcpPort = 9999;
constexpr std::size_t kExchange = 524288;

/// Upload then download, as the client does; the bytes downloaded.
std::optional<std::uint64_t> RunExchange(std::size_t upload = kExchange)
{
    const Tcp socket = ConnectTcp(kTcpPort);
    if (!socket->IsConnected() || !SendBytes(socket, upload))
        return std::nullopt;
    return ReceiveUntilClosed(socket);
}

/// The server's log line for the finished test, which must hold every part.
void ExpectLogLine(ServerProcess& server, const std::string& end, std::initializer_list<const char*> parts)
{
    const auto line = server.WaitForLine(end);
    ASSERT_TRUE(line) << end;
    for (const char* part : parts)
        EXPECT_NE(line->find(part), std::string::npos) << *line;
}
} // namespace

TEST(TcpSpeedService, FullExchangeAndAnUploadEndedEarlyBothGetTheirDownload)
{
    ServerProcess server({"--upload-silence-ms", "1000"});
    ASSERT_TRUE(server.WaitUntilReady()) << server.GetStderr();
    EXPECT_EQ(RunExchange(), kExchange);
    ExpectLogLine(server, "end=", {"tcp 127.0.0.1:", "up=524288 down=524288", "start=full end=completed"});
    EXPECT_EQ(RunExchange(100000), kExchange);
    ExpectLogLine(server, "start=silence", {"up=100000 down=524288"});
}

TEST(TcpSpeedService, TrickledUploadGetsItsDownloadAtTheUploadLimit)
{
    // Never silent, never complete: only the client's time limit can start it.
    ServerProcess server({"--upload-limit-ms", "500", "--upload-silence-ms", "60000"});
    ASSERT_TRUE(server.WaitUntilReady()) << server.GetStderr();
    const Tcp fd = ConnectTcp(kTcpPort);
    bool bDownloading = false;
    for (int i = 0; i < 200 && !bDownloading; ++i)
    {
        ASSERT_TRUE(SendBytes(fd, 1024));
        bDownloading = fd->WaitReadable(50) == 1;
    }
    ASSERT_TRUE(bDownloading);
    EXPECT_EQ(ReceiveUntilClosed(fd), kExchange);
    fd->Close();
    ExpectLogLine(server, "end=", {"start=limit end=completed"});
}

TEST(TcpSpeedService, ServesManyClientsWhileOneStalls)
{
    // A server serving one client at a time would wait on the stalled one.
    ServerProcess server({"--upload-silence-ms", "60000", "--max-per-source", "64"});
    ASSERT_TRUE(server.WaitUntilReady()) << server.GetStderr();
    const Tcp stalled = ConnectTcp(kTcpPort);
    ASSERT_TRUE(SendBytes(stalled, kExchange / 2));
    constexpr int kClients = 50;
    std::atomic<int> served{0};
    std::vector<std::thread> clients;
    for (int i = 0; i < kClients; ++i)
        clients.emplace_back([&] { served += RunExchange() == kExchange ? 1 : 0; });
    for (auto& client : clients)
        client.join();
    EXPECT_EQ(served, kClients);
}

TEST(TcpSpeedService, VanishedClientIsReleasedAfterTheIdleTimeout)
{
    ServerProcess server(
        {"--max-connections", "1", "--idle-timeout-ms", "1000", "--upload-silence-ms", "100"});
    ASSERT_TRUE(server.WaitUntilReady()) << server.GetStderr();
    // Sends a little, then neither reads nor closes.
    const Tcp vanished = ConnectTcp(kTcpPort);
    ASSERT_TRUE(SendBytes(vanished, 10000));
    const Tcp refused = ConnectTcp(kTcpPort);
    EXPECT_EQ(ReceiveUntilClosed(refused), 0u);
    EXPECT_TRUE(server.WaitForLine("end=refused-full"));
    ExpectLogLine(server, "end=idle-timeout", {"up=10000"});
    EXPECT_EQ(RunExchange(), kExchange);
}

TEST(TcpSpeedService, SigtermEndsOpenTestsAndExitsZero)
{
    ServerProcess server({"--upload-silence-ms", "100"});
    ASSERT_TRUE(server.WaitUntilReady()) << server.GetStderr();
    const Tcp open = ConnectTcp(kTcpPort);
    ASSERT_TRUE(SendBytes(open, 1000));
    // Download data proves the server holds the session when the signal comes.
    ASSERT_EQ(open->WaitReadable(5000), 1);
    server.Signal(SIGTERM);
    EXPECT_EQ(server.WaitForExit(), 0) << server.GetStderr();
    EXPECT_TRUE(server.WaitForLine("end=server-stopped"));
    EXPECT_TRUE(server.WaitForLine("udp pings=0"));
}

TEST(TcpSpeedService, SixHundredSlowConnectionsFromOneHostLeaveAnotherItsTest)
{
    // With the defaults the per-source cap turns most of them away at once;
    // with the cap lifted so that they fill the server, the slow-upload
    // eviction frees the places within seconds.
    const std::vector<std::vector<std::string>> setups{{"--metrics", "127.0.0.1:9100"},
                                                       {"--metrics", "127.0.0.1:9100", "--max-per-source",
                                                        "600", "--max-connections", "600", "--log-format",
                                                        "json"}};
    for (const auto& args : setups)
    {
        ServerProcess server(args);
        ASSERT_TRUE(server.WaitUntilReady()) << server.GetStderr();
        std::vector<Tcp> flood;
        for (int i = 0; i < 600; ++i)
        {
            flood.push_back(ConnectTcp(kTcpPort));
            SendBytes(flood.back(), 10);
        }
        // The other host tries again while it is refused, as a player would.
        std::optional<std::uint64_t> received;
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (received != kExchange && std::chrono::steady_clock::now() < deadline)
        {
            const Tcp fd = ConnectTcp(kTcpPort, u"127.0.0.2");
            received = SendBytes(fd, kExchange, Millis(2000)) ? ReceiveUntilClosed(fd) : std::nullopt;
            if (received != kExchange) // a pause that reads the server's log, lest its pipe fill
                server.WaitForLine("\n", Millis(100));
        }
        EXPECT_EQ(received, kExchange) << args.size();
        EXPECT_TRUE(server.WaitForLine("completed")); // the server counts it when the client has closed
        const std::string metrics = HttpGet(9100, "/metrics");
        EXPECT_GE(MetricValue(metrics, "rig_tcp_tests_completed_total"), 1) << metrics;
        if (args.size() == 2)
            EXPECT_LE(MetricValue(metrics, "rig_tcp_connections_active"), 8) << "the source's share";
        else
            EXPECT_TRUE(server.WaitForLine(R"("up":10,"down":0,)")) << "an evicted one, logged as JSON";
        EXPECT_GE(MetricValue(metrics, "rig_tcp_connections_evicted_total"), args.size() == 2 ? 0 : 1);
    }
}
