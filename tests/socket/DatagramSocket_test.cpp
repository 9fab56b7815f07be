#include "share/socket/DatagramSocket.h"

#include <cstring>
#include <gtest/gtest.h>

#include "SocketTestUtil.h"
#include "share/socket/DatagramPool.h"
#include "tests/common/AssertionTestUtil.h"

using zul::socket::Datagram;
using zul::socket::DatagramPool;
using zul::socket::DatagramSocket;

namespace
{
// Runs in its own network namespace: the fixed ports are ours alone.
constexpr std::uint16_t kEchoPort = 20000;
constexpr std::uint16_t kHostPort = 9998;

Datagram* ReceiveOne(DatagramSocket& socket)
{
    socket_test::BoundBlockingCalls(socket);
    return socket.ReceiveFrom();
}
} // namespace

TEST(DatagramSocket, BoundAndUnboundSocketsExchangeDatagrams)
{
    DatagramSocket receiver(kEchoPort, false);
    DatagramSocket sender(0, false);

    Datagram datagram;
    datagram.SetHost(u"127.0.0.1");
    datagram.SetPort(kEchoPort);
    std::uint8_t bytes[20];
    for (int i = 0; i < 20; ++i)
        bytes[i] = static_cast<std::uint8_t>(i + 1);
    datagram.SetData(bytes, sizeof(bytes));
    ASSERT_EQ(20, sender.SendTo(&datagram));

    Datagram* pReceived = ReceiveOne(receiver);
    ASSERT_NE(nullptr, pReceived);
    EXPECT_EQ(20, pReceived->GetLength());
    EXPECT_EQ(0, std::memcmp(bytes, pReceived->GetBuffer(), sizeof(bytes)));
    EXPECT_EQ(u"127.0.0.1", pReceived->GetHost());
    EXPECT_NE(0, pReceived->GetPort());
    // The unbound sender still reports what it was given, not what the system chose.
    EXPECT_EQ(u"0.0.0.0", sender.GetHost());
    EXPECT_EQ(0, sender.GetPort());
    DatagramPool::GetInstance()->Release(pReceived);

    // An idle non-blocking receive gives nothing and records no error.
    ASSERT_TRUE(receiver.SetNonBlocking());
    receiver.SetLastError(777);
    EXPECT_EQ(nullptr, receiver.ReceiveFrom());
    EXPECT_EQ(777, receiver.GetLastError());
}

TEST(DatagramSocket, FailedBindIsRecordedAndTheSocketStillSends)
{
    DatagramSocket socket(u"127.0.0.1", kHostPort, false);
    EXPECT_EQ(0, socket.GetLastError());
    EXPECT_EQ(u"127.0.0.1", socket.GetHost());

    DatagramSocket taken(u"127.0.0.1", kHostPort, false);
    EXPECT_EQ(socket_test::kAddressInUse, taken.GetLastError());
    Datagram datagram;
    datagram.SetHost(u"127.0.0.1");
    datagram.SetPort(kHostPort);
    datagram.Allocate(16);
    datagram << std::uint16_t(1);
    EXPECT_EQ(10, taken.SendTo(&datagram));
    Datagram* pReceived = ReceiveOne(socket);
    ASSERT_NE(nullptr, pReceived);
    DatagramPool::GetInstance()->Release(pReceived);

    EXPECT_EQ("pDatagram != NULL", FailedExpression([&] { taken.SendTo(nullptr); }));
    EXPECT_TRUE(taken.Close());
    EXPECT_FALSE(taken.Close());
    EXPECT_EQ(-1, taken.SendTo(&datagram));
    EXPECT_EQ(zul::socket::kBadHandle, taken.GetLastError());
    EXPECT_EQ(nullptr, taken.ReceiveFrom());
    EXPECT_EQ(0, taken.GetReceiveBufferSize());
}
