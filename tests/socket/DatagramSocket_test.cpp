#include "share/socket/DatagramSocket.h"

#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <sys/time.h>

#include "SocketTestUtil.h"
#include "share/socket/DatagramPool.h"

using zul::socket::Datagram;
using zul::socket::DatagramPool;
using zul::socket::DatagramSocket;

namespace
{
// Runs in its own network namespace: the fixed ports are ours alone.
constexpr std::uint16_t kEchoPort = 20000;
constexpr std::uint16_t kHostPort = 9998;

void BoundReceives(DatagramSocket& socket)
{
    const timeval limit{5, 0};
    socket.SetOption(SOL_SOCKET, SO_RCVTIMEO, reinterpret_cast<const char*>(&limit), sizeof(limit));
}

void Address(Datagram& datagram, std::uint16_t port)
{
    datagram.SetHost(u"127.0.0.1");
    datagram.SetPort(port);
}
} // namespace

TEST(DatagramSocket, BoundAndUnboundSocketsExchangeDatagrams)
{
    auto receiver = std::make_unique<DatagramSocket>(kEchoPort, false);
    auto sender = std::make_unique<DatagramSocket>(0, false);
    BoundReceives(*receiver);
    EXPECT_EQ(u"0.0.0.0", receiver->GetHost());
    EXPECT_EQ(kEchoPort, receiver->GetPort());
    EXPECT_EQ(0, receiver->GetLastError());

    Datagram datagram;
    Address(datagram, kEchoPort);
    std::uint8_t bytes[20];
    for (int i = 0; i < 20; ++i)
        bytes[i] = static_cast<std::uint8_t>(i + 1);
    datagram.SetData(bytes, sizeof(bytes));
    ASSERT_EQ(20, sender->SendTo(&datagram));

    Datagram* pReceived = receiver->ReceiveFrom();
    ASSERT_NE(nullptr, pReceived);
    EXPECT_EQ(20, pReceived->GetLength());
    EXPECT_EQ(0, std::memcmp(bytes, pReceived->GetBuffer(), sizeof(bytes)));
    EXPECT_EQ(8, pReceived->GetReadOffset());
    EXPECT_EQ(u"127.0.0.1", pReceived->GetHost());
    const std::uint16_t senderPort = pReceived->GetPort();
    EXPECT_NE(0, senderPort);

    // The unbound sender still reports what it was given, not what the system chose.
    EXPECT_EQ(u"0.0.0.0", sender->GetHost());
    EXPECT_EQ(0, sender->GetPort());

    DatagramPool::GetInstance()->Release(pReceived);
    EXPECT_EQ(nullptr, pReceived);
}

TEST(DatagramSocket, HostConstructorBindsToThatAddress)
{
    DatagramSocket socket(u"127.0.0.1", kHostPort, false);
    EXPECT_EQ(0, socket.GetLastError());
    EXPECT_EQ(u"127.0.0.1", socket.GetHost());
    EXPECT_EQ(kHostPort, socket.GetPort());

    // Port 0 is bound too; the system picks one, which GetPort does not ask for.
    DatagramSocket any(u"127.0.0.1", 0, false);
    EXPECT_EQ(0, any.GetLastError());
    EXPECT_EQ(0, any.GetPort());

    // A failed bind is recorded and leaves a socket that can still send.
    DatagramSocket taken(u"127.0.0.1", kHostPort, false);
    EXPECT_EQ(EADDRINUSE, taken.GetLastError());
    BoundReceives(socket);
    Datagram datagram;
    Address(datagram, kHostPort);
    datagram.Allocate(16);
    datagram << std::uint16_t(1);
    EXPECT_EQ(10, taken.SendTo(&datagram));
    Datagram* pReceived = socket.ReceiveFrom();
    ASSERT_NE(nullptr, pReceived);
    DatagramPool::GetInstance()->Release(pReceived);
}

TEST(DatagramSocket, IdleNonBlockingReceiveGivesNullAndRecordsNothing)
{
    DatagramSocket socket(kEchoPort, false);
    ASSERT_TRUE(socket.SetNonBlocking());
    socket.SetLastError(777);
    EXPECT_EQ(nullptr, socket.ReceiveFrom());
    EXPECT_EQ(777, socket.GetLastError());
    EXPECT_TRUE(socket.SetBlocking());
}

TEST(DatagramSocket, FailuresAreResults)
{
    DatagramSocket socket(0, false);
    EXPECT_NE(std::string::npos, socket_test::AssertionRecord([&] { socket.SendTo(nullptr); })
                                     .find(socket_test::ExpressionLine("pDatagram != NULL")));

    EXPECT_TRUE(socket.Close());
    EXPECT_FALSE(socket.Close());
    Datagram datagram;
    Address(datagram, kEchoPort);
    EXPECT_EQ(-1, socket.SendTo(&datagram));
    EXPECT_EQ(zul::socket::kBadHandle, socket.GetLastError());
    EXPECT_EQ(nullptr, socket.ReceiveFrom());
    EXPECT_EQ(0, socket.GetReceiveBufferSize());
}
