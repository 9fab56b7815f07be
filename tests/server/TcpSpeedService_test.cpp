// The speed test's server side, driven through the real binary on its default
// ports (each test binary runs in a network namespace of its own).
#include <atomic>
#include <csignal>
#include <gtest/gtest.h>
#include <memory>
#include <thread>

#include "ServerProcess.h"
#include "TestSockets.h"

using namespace testnet;

namespace
{
constexpr std::uint16_t kTcpPort = 9999;
constexpr std::size_t kExchange = 524288;

std::unique_ptr<ServerProcess> StartServer(const std::vector<std::string>& args = {})
{
    auto server = std::make_unique<ServerProcess>(args);
    EXPECT_TRUE(server->WaitUntilReady()) << server->GetStderr();
    return server;
}

/// Upload then download, as the client does; the bytes downloaded.
std::optional<std::uint64_t> RunExchange(std::size_t upload = kExchange)
{
    Fd fd = ConnectTcp(kTcpPort);
    if (fd.Get() < 0 || !SendBytes(fd, upload))
        return std::nullopt;
    return ReceiveUntilClosed(fd);
}
} // namespace

TEST(TcpSpeedService, FullExchangeThenCloseAndOneLogLine)
{
    auto server = StartServer();
    EXPECT_EQ(RunExchange(), kExchange);
    const auto line = server->WaitForLine("end=");
    ASSERT_TRUE(line);
    EXPECT_NE(line->find("tcp 127.0.0.1:"), std::string::npos) << *line;
    EXPECT_NE(line->find("up=524288 down=524288"), std::string::npos) << *line;
    EXPECT_NE(line->find("start=full end=completed"), std::string::npos) << *line;
}

TEST(TcpSpeedService, ServesManyClientsWhileOneStalls)
{
    // A server serving one client at a time would wait on the stalled one.
    auto server = StartServer({"--upload-silence-ms", "60000"});
    Fd stalled = ConnectTcp(kTcpPort);
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

TEST(TcpSpeedService, SilentUploadStillGetsItsDownload)
{
    auto server = StartServer({"--upload-silence-ms", "300"});
    EXPECT_EQ(RunExchange(100000), kExchange);
    const auto line = server->WaitForLine("end=");
    ASSERT_TRUE(line);
    EXPECT_NE(line->find("up=100000 down=524288"), std::string::npos) << *line;
    EXPECT_NE(line->find("start=silence"), std::string::npos) << *line;
}

TEST(TcpSpeedService, TrickledUploadGetsItsDownloadAtTheUploadLimit)
{
    // Never silent, never complete: only the client's time limit can start it.
    auto server = StartServer({"--upload-limit-ms", "500", "--upload-silence-ms", "60000"});
    Fd fd = ConnectTcp(kTcpPort);
    bool bDownloading = false;
    for (int i = 0; i < 200 && !bDownloading; ++i)
    {
        ASSERT_TRUE(SendBytes(fd, 1024));
        bDownloading = WaitReadable(fd, Millis(50));
    }
    ASSERT_TRUE(bDownloading);
    EXPECT_EQ(ReceiveUntilClosed(fd), kExchange);
    fd.Reset();
    const auto line = server->WaitForLine("end=");
    ASSERT_TRUE(line);
    EXPECT_NE(line->find("start=limit end=completed"), std::string::npos) << *line;
}

TEST(TcpSpeedService, StalledClientIsReleasedAfterTheIdleTimeout)
{
    auto server =
        StartServer({"--max-connections", "1", "--idle-timeout-ms", "1000", "--upload-silence-ms", "100"});
    // Sends a little, then neither reads nor closes: gone, as far as we know.
    Fd vanished = ConnectTcp(kTcpPort);
    ASSERT_TRUE(SendBytes(vanished, 10000));

    Fd refused = ConnectTcp(kTcpPort);
    EXPECT_EQ(ReceiveUntilClosed(refused), 0u);
    EXPECT_TRUE(server->WaitForLine("end=refused-full"));

    const auto line = server->WaitForLine("end=idle-timeout");
    ASSERT_TRUE(line);
    EXPECT_NE(line->find("up=10000"), std::string::npos) << *line;
    EXPECT_EQ(RunExchange(), kExchange);
}

TEST(TcpSpeedService, SilentModeTakesTheUploadAndNeverSends)
{
    auto server = StartServer({"--silent", "--upload-silence-ms", "100"});
    Fd fd = ConnectTcp(kTcpPort);
    ASSERT_TRUE(SendBytes(fd, kExchange));
    EXPECT_FALSE(WaitReadable(fd, Millis(500)));
    fd.Reset();
    const auto line = server->WaitForLine("end=");
    ASSERT_TRUE(line);
    EXPECT_NE(line->find("up=524288 down=0"), std::string::npos) << *line;
    EXPECT_NE(line->find("end=client-closed"), std::string::npos) << *line;
}

TEST(TcpSpeedService, StopReadingBlocksTheClientsSendThenStillDownloads)
{
    auto server = StartServer({"--stop-reading-after", "65536", "--upload-silence-ms", "300"});
    // Loopback send buffers can start at megabytes and swallow the whole
    // upload; a client's own buffer is not the server's to shrink.
    Fd fd = ConnectTcp(kTcpPort, 32768);
    std::size_t sent = 0;
    // Blocked: no room for a whole second (the server reads nothing more).
    while (sent < kExchange && SendBytes(fd, 1024, Millis(1000)))
        sent += 1024;
    EXPECT_GE(sent, 65536u);
    EXPECT_LT(sent, kExchange);
    EXPECT_EQ(ReceiveUntilClosed(fd), kExchange);
}

TEST(TcpSpeedService, CloseAfterEndsTheDownloadEarly)
{
    auto server = StartServer({"--close-after", "102400"});
    EXPECT_EQ(RunExchange(), 102400u);
}

TEST(TcpSpeedService, SigtermEndsOpenTestsAndExitsZero)
{
    auto server = StartServer({"--upload-silence-ms", "100"});
    Fd open = ConnectTcp(kTcpPort);
    ASSERT_TRUE(SendBytes(open, 1000));
    // Download data proves the server holds the session when the signal comes.
    ASSERT_TRUE(WaitReadable(open, Millis(5000)));
    server->Signal(SIGTERM);
    EXPECT_EQ(server->WaitForExit(), 0) << server->GetStderr();
    EXPECT_TRUE(server->WaitForLine("end=server-stopped"));
    EXPECT_TRUE(server->WaitForLine("udp pings=0"));
}
