// Its own program, so the pool it sees is the one static initialisation made
// and nothing else has used.
#include <gtest/gtest.h>
#include <vector>

#include "SocketTestUtil.h"
#include "share/socket/DatagramPool.h"
#include "share/socket/DatagramSocket.h"
#include "share/socket/SocketPlatform.h"

using zul::socket::Datagram;
using zul::socket::DatagramPool;

namespace
{
constexpr std::uint16_t kPort = 20000;

// Raw bytes rather than a Datagram: a datagram may be shorter than a header.
bool SendRaw(std::size_t nLength)
{
    namespace platform = zul::socket::platform;
    const std::vector<std::uint8_t> bytes(nLength, 0x5A);
    const zul::socket::SocketHandle hSocket = platform::Open(platform::SocketKind::Datagram);
    const int nSent = platform::SendTo(hSocket, bytes.data(), static_cast<int>(bytes.size()),
                                       platform::MakeAddress(platform::TextToAddress(u"127.0.0.1"), kPort));
    platform::Close(hSocket);
    return nSent == static_cast<int>(bytes.size());
}
} // namespace

TEST(DatagramPool, ReceivedDatagramsComeFromThePoolAndReuseTheirBuffer)
{
    auto* pool = DatagramPool::GetInstance();
    ASSERT_EQ(0u, pool->GetResourceCount()) << "made empty at start-up";
    zul::socket::DatagramSocket receiver(kPort, false);
    socket_test::BoundBlockingCalls(receiver);

    ASSERT_TRUE(SendRaw(100));
    Datagram* pFirst = receiver.ReceiveFrom();
    ASSERT_NE(nullptr, pFirst);
    const Datagram* pKept = pFirst;
    EXPECT_EQ(0u, pool->GetFreeResourceCount());
    pool->Release(pFirst);

    // Too short for a header: dropped without touching the pool.
    ASSERT_TRUE(SendRaw(5));
    ASSERT_TRUE(SendRaw(0));
    EXPECT_EQ(nullptr, receiver.ReceiveFrom());
    EXPECT_EQ(nullptr, receiver.ReceiveFrom());
    EXPECT_EQ(1u, pool->GetFreeResourceCount());

    ASSERT_TRUE(SendRaw(20));
    Datagram* pSecond = receiver.ReceiveFrom();
    ASSERT_NE(nullptr, pSecond);
    EXPECT_EQ(pKept, pSecond);
    EXPECT_EQ(100, pSecond->GetCapacity());
    EXPECT_EQ(20, pSecond->GetLength());
    EXPECT_EQ(8, pSecond->GetReadOffset());
    EXPECT_EQ(0x5A, pSecond->GetBuffer()[19]);
    pool->Release(pSecond);
    EXPECT_EQ(1u, pool->GetResourceCount());
}
