#include "share/socket/MSocket.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

#include "SocketTestUtil.h"
#include "share/common/StringUtil.h"

using zul::socket::MSocket;

namespace
{
/// A listening socket on 127.0.0.1 with a port of the system's choice.
std::unique_ptr<MSocket> MakeListener(int nBacklog = 8)
{
    auto listener = std::make_unique<MSocket>(0, true);
    listener->Bind(u"127.0.0.1", 0);
    listener->Listen(nBacklog);
    socket_test::BoundBlockingCalls(*listener);
    return listener;
}

/// Both ends of one loopback connection.
struct Connection
{
    std::unique_ptr<MSocket> listener = MakeListener();
    std::unique_ptr<MSocket> client = std::make_unique<MSocket>(0, true);
    std::unique_ptr<MSocket> server;

    Connection()
    {
        if (client->Connect(u"127.0.0.1", listener->GetLocalPort(), 5000))
            server.reset(listener->Accept());
        if (server)
            socket_test::BoundBlockingCalls(*server);
        socket_test::BoundBlockingCalls(*client);
    }
};
} // namespace

TEST(MSocket, LifecycleStates)
{
    MSocket socket(0, false);
    EXPECT_EQ(u"<Socket host=Unknown port=0 />", socket.ToString());
    EXPECT_FALSE(socket.Close());
    EXPECT_EQ(u"Invalid", socket.GetLocalHost());
    EXPECT_EQ(zul::socket::kBadHandle, socket.GetLastError());

    ASSERT_TRUE(socket.Create());
    socket.SetLastError(1234);
    EXPECT_FALSE(socket.Create()) << "a second Create must not replace the handle";
    EXPECT_EQ(1234, socket.GetLastError());
    EXPECT_TRUE(socket.Close());
    EXPECT_FALSE(socket.Close());
}

TEST(MSocket, ConnectedEndsKnowEachOther)
{
    Connection c;
    ASSERT_TRUE(c.server);
    const std::uint16_t serverPort = c.listener->GetLocalPort();
    EXPECT_TRUE(c.server->IsConnected());
    EXPECT_EQ(u"<Socket host=127.0.0.1 port=" + zul::ToWide(std::to_string(serverPort)) + u" />",
              c.client->ToString());
    EXPECT_EQ(u"127.0.0.1", c.server->GetLocalHost());
    EXPECT_EQ(c.client->GetLocalPort(), c.server->GetPeerPort());
    EXPECT_TRUE(c.client->Close());
    EXPECT_FALSE(c.client->IsConnected());
    EXPECT_EQ(serverPort, c.client->GetPeerPort()) << "the cached end outlives the handle";

    // Bound to any address, the local host is asked again once connected.
    MSocket client(0, true);
    ASSERT_TRUE(client.Bind(0));
    EXPECT_EQ(u"0.0.0.0", client.GetLocalHost());
    ASSERT_TRUE(client.Connect(u"127.0.0.1", serverPort));
    EXPECT_EQ(u"127.0.0.1", client.GetLocalHost());
}

TEST(MSocket, SendAndReceiveResults)
{
    Connection c;
    ASSERT_TRUE(c.server);
    EXPECT_EQ(5, c.client->Send("hello", 5, 0));
    char buffer[8] = {};
    ASSERT_EQ(2, c.server->Receive(buffer, 2, 0));
    EXPECT_EQ("he", std::string(buffer, 2));
    EXPECT_EQ(3u, c.server->GetReadableBytes());
    ASSERT_EQ(3, c.server->Receive(buffer, sizeof(buffer), 0));

    // Nothing waiting on a non-blocking socket: 0, with the would-block code.
    ASSERT_TRUE(c.server->SetNonBlocking());
    EXPECT_EQ(0, c.server->Receive(buffer, sizeof(buffer), 0));
    EXPECT_EQ(zul::socket::kWouldBlock, c.server->GetLastError());
    ASSERT_TRUE(c.server->SetBlocking());

    // The peer closed: -1, and the recorded code is left alone.
    c.client->Close();
    c.server->SetLastError(4321);
    EXPECT_EQ(-1, c.server->Receive(buffer, sizeof(buffer), 0));
    EXPECT_EQ(4321, c.server->GetLastError());

    // Writing to a peer that has gone fails without killing the process.
    int result = 0;
    for (int i = 0; i < 100 && result >= 0; ++i)
        result = c.server->Send("x", 1, 0);
    EXPECT_EQ(-1, result);
    EXPECT_TRUE(socket_test::IsGonePeerCode(c.server->GetLastError())) << c.server->GetLastError();
}

TEST(MSocket, ConnectFailuresAreResults)
{
    auto listener = MakeListener();
    const std::uint16_t port = listener->GetLocalPort();
    listener->Close();
    MSocket refused(0, true);
    EXPECT_FALSE(refused.Connect(u"127.0.0.1", port, 5000));
    EXPECT_EQ(socket_test::kRefused, refused.GetLastError());
    EXPECT_FALSE(refused.IsConnected());
    // A name is not looked up: it reads as 255.255.255.255, which TCP cannot reach.
    MSocket named(0, true);
    EXPECT_FALSE(named.Connect(u"localhost", port, 5000));
    EXPECT_NE(0, named.GetLastError());

    // A listener whose accept queue is full drops further SYNs, as a host
    // that never answers would: the connect gives up at its deadline.
    listener = MakeListener(0);
    std::vector<std::unique_ptr<MSocket>> clients;
    bool bTimedOut = false;
    for (int i = 0; i < 8 && !bTimedOut; ++i)
    {
        clients.push_back(std::make_unique<MSocket>(0, true));
        bTimedOut = !clients.back()->Connect(u"127.0.0.1", listener->GetLocalPort(), 300);
    }
    ASSERT_TRUE(bTimedOut);
    EXPECT_EQ(zul::socket::kTimedOut, clients.back()->GetLastError());
    EXPECT_FALSE(clients.back()->IsConnected());
    EXPECT_GT(clients.size(), 1u) << "the first connection fits the queue";
}

TEST(MSocket, SendBlockIsWholeTimedOutOrFailed)
{
    Connection c;
    ASSERT_TRUE(c.server);
    const char data[4096] = {1, 2, 3};
    int nSent = 0;
    EXPECT_EQ(MSocket::SendStatus::Sent, c.client->SendBlock(data, sizeof(data), 5000, &nSent));
    EXPECT_EQ(4096, nSent);

    // A peer that never reads: the deadline ends the block part-way.
    c.server->SetReceiveBufferSize(4096);
    c.client->SetSendBufferSize(4096);
    const std::vector<char> block(8 * 1024 * 1024, 'x');
    EXPECT_EQ(MSocket::SendStatus::TimedOut,
              c.client->SendBlock(block.data(), static_cast<int>(block.size()), 200, &nSent));
    EXPECT_GT(nSent, 0);
    EXPECT_LT(nSent, static_cast<int>(block.size()));
    EXPECT_EQ(zul::socket::kTimedOut, c.client->GetLastError());

    c.server->Close();
    MSocket::SendStatus status = MSocket::SendStatus::TimedOut;
    for (int i = 0; i < 100 && status != MSocket::SendStatus::Failed; ++i)
        status = c.client->SendBlock(data, sizeof(data), 200, nullptr);
    EXPECT_EQ(MSocket::SendStatus::Failed, status);
    EXPECT_TRUE(socket_test::IsGonePeerCode(c.client->GetLastError())) << c.client->GetLastError();
}
