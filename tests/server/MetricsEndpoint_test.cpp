// The metrics endpoint against clients that connect and say nothing, or only
// half a request: scrapes still get through, and a stopping server does not
// wait for them.
#include <csignal>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "ServerProcess.h"
#include "TestSockets.h"

using namespace testnet;

namespace
{
constexpr std::uint16_t kMetricsPort = 9100;

/// n connections that never finish a request: every second one says nothing,
/// the others send a request head without its closing blank line.
std::vector<Tcp> SlowClients(int n)
{
    const std::string half = "GET /metrics HTTP/1.1\r\nHost: 127.0.0.1\r\n";
    std::vector<Tcp> clients;
    for (int i = 0; i < n; ++i)
    {
        clients.push_back(ConnectTcp(kMetricsPort));
        if (i % 2 == 1)
            clients.back()->Send(half.data(), static_cast<int>(half.size()), 0);
    }
    return clients;
}

int ScrapesAnswered(int scrapes)
{
    int answered = 0;
    for (int i = 0; i < scrapes; ++i)
        answered += HttpGet(kMetricsPort, "/metrics").find("rig_udp_pongs_sent_total") != std::string::npos;
    return answered;
}

TEST(MetricsEndpoint, SlowClientsDoNotBlockScrapes)
{
    ServerProcess server({"--metrics", "127.0.0.1:9100"});
    ASSERT_TRUE(server.WaitUntilReady()) << server.GetStderr();
    // As many as the endpoint once had slots, then far more than it has now.
    for (const int slow : {16, 200})
    {
        const std::vector<Tcp> clients = SlowClients(slow);
        for (const Tcp& client : clients)
            ASSERT_TRUE(client->IsConnected());
        EXPECT_EQ(ScrapesAnswered(18), 18) << "with " << slow << " slow clients";
    }
}

TEST(MetricsEndpoint, TermEndsTheServerWithoutWaitingForSlowClients)
{
    ServerProcess server({"--metrics", "127.0.0.1:9100"});
    ASSERT_TRUE(server.WaitUntilReady()) << server.GetStderr();
    const std::vector<Tcp> clients = SlowClients(8);
    // Connections are taken in order: one answered after them means the slow
    // ones are open in the server.
    ASSERT_EQ(ScrapesAnswered(1), 1);
    server.Signal(SIGTERM);
    // Well within the two seconds a silent client may take to send its request.
    EXPECT_EQ(server.WaitForExit(Millis(1500)), 0) << server.GetStderr();
}
} // namespace
