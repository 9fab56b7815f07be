// Its own program, so the pool it sees is the one static initialisation made
// and nothing else has used.
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <sys/time.h>
#include <unistd.h>
#include <vector>

#include "share/socket/DatagramPool.h"
#include "share/socket/DatagramSocket.h"

using zul::socket::Datagram;
using zul::socket::DatagramPool;
using zul::socket::DatagramSocket;

namespace
{
constexpr std::uint16_t kPort = 20000;

int SendRaw(std::size_t nLength)
{
    // A plain buffer instead of a Datagram: a datagram may be shorter than a header.
    const std::vector<std::uint8_t> bytes(nLength, 0x5A);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(kPort);
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int hSocket = ::socket(AF_INET, SOCK_DGRAM, 0);
    const auto sent =
        ::sendto(hSocket, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof(to));
    ::close(hSocket);
    return static_cast<int>(sent);
}
} // namespace

TEST(DatagramPool, ReceivedDatagramsComeFromThePoolAndReuseTheirBuffer)
{
    ASSERT_EQ(0u, DatagramPool::GetInstance()->GetResourceCount()) << "made empty at start-up";

    auto receiver = std::make_unique<DatagramSocket>(kPort, false);
    const timeval limit{5, 0};
    receiver->SetOption(SOL_SOCKET, SO_RCVTIMEO, reinterpret_cast<const char*>(&limit), sizeof(limit));

    ASSERT_EQ(100, SendRaw(100));
    Datagram* pFirst = receiver->ReceiveFrom();
    ASSERT_NE(nullptr, pFirst);
    const Datagram* pKept = pFirst;
    EXPECT_EQ(1u, DatagramPool::GetInstance()->GetResourceCount());
    EXPECT_EQ(0u, DatagramPool::GetInstance()->GetFreeResourceCount());
    DatagramPool::GetInstance()->Release(pFirst);
    EXPECT_EQ(nullptr, pFirst);
    EXPECT_EQ(1u, DatagramPool::GetInstance()->GetFreeResourceCount());

    // Too short for a header: dropped without touching the pool.
    ASSERT_EQ(5, SendRaw(5));
    ASSERT_EQ(0, SendRaw(0));
    EXPECT_EQ(nullptr, receiver->ReceiveFrom());
    EXPECT_EQ(nullptr, receiver->ReceiveFrom());
    EXPECT_EQ(1u, DatagramPool::GetInstance()->GetResourceCount());
    EXPECT_EQ(1u, DatagramPool::GetInstance()->GetFreeResourceCount());

    ASSERT_EQ(20, SendRaw(20));
    Datagram* pSecond = receiver->ReceiveFrom();
    ASSERT_NE(nullptr, pSecond);
    EXPECT_EQ(pKept, pSecond);
    EXPECT_EQ(100, pSecond->GetCapacity());
    EXPECT_EQ(20, pSecond->GetLength());
    EXPECT_EQ(8, pSecond->GetReadOffset());
    EXPECT_EQ(0x5A, pSecond->GetBuffer()[19]);
    DatagramPool::GetInstance()->Release(pSecond);
    EXPECT_EQ(1u, DatagramPool::GetInstance()->GetResourceCount());
}
