#include "DatagramBatch.h"

#include <arpa/inet.h>
#include <cerrno>
#include <netinet/in.h>
#include <sys/socket.h>

namespace
{
constexpr int kMaxBatch = 64;
}

int ReceiveDatagrams(int fd, Datagram* pDatagrams, int nCount)
{
    mmsghdr messages[kMaxBatch];
    iovec vectors[kMaxBatch];
    sockaddr_in peers[kMaxBatch];
    const int n = nCount < kMaxBatch ? nCount : kMaxBatch;
    for (int i = 0; i < n; ++i)
    {
        vectors[i] = {pDatagrams[i].m_Data.data(), Datagram::kCapacity};
        messages[i] = {};
        messages[i].msg_hdr.msg_name = &peers[i];
        messages[i].msg_hdr.msg_namelen = sizeof peers[i];
        messages[i].msg_hdr.msg_iov = &vectors[i];
        messages[i].msg_hdr.msg_iovlen = 1;
    }
    const int got = ::recvmmsg(fd, messages, static_cast<unsigned>(n), MSG_DONTWAIT, nullptr);
    if (got < 0)
        return errno == EAGAIN || errno == EWOULDBLOCK ? 0 : -1;
    for (int i = 0; i < got; ++i)
    {
        Datagram& d = pDatagrams[i];
        const bool bIpv4 =
            messages[i].msg_hdr.msg_namelen >= sizeof(sockaddr_in) && peers[i].sin_family == AF_INET;
        d.m_Address = bIpv4 ? ntohl(peers[i].sin_addr.s_addr) : 0;
        d.m_Port = bIpv4 ? ntohs(peers[i].sin_port) : 0;
        d.m_Size = static_cast<std::uint16_t>(messages[i].msg_len);
        d.m_bTruncated = (messages[i].msg_hdr.msg_flags & MSG_TRUNC) != 0;
    }
    return got;
}

int SendDatagrams(int fd, const Datagram* pDatagrams, int nCount)
{
    mmsghdr messages[kMaxBatch];
    iovec vectors[kMaxBatch];
    sockaddr_in peers[kMaxBatch];
    const int n = nCount < kMaxBatch ? nCount : kMaxBatch;
    for (int i = 0; i < n; ++i)
    {
        const Datagram& d = pDatagrams[i];
        peers[i] = {};
        peers[i].sin_family = AF_INET;
        peers[i].sin_addr.s_addr = htonl(d.m_Address);
        peers[i].sin_port = htons(d.m_Port);
        vectors[i] = {const_cast<std::uint8_t*>(d.m_Data.data()), d.m_Size};
        messages[i] = {};
        messages[i].msg_hdr.msg_name = &peers[i];
        messages[i].msg_hdr.msg_namelen = sizeof peers[i];
        messages[i].msg_hdr.msg_iov = &vectors[i];
        messages[i].msg_hdr.msg_iovlen = 1;
    }
    return ::sendmmsg(fd, messages, static_cast<unsigned>(n), MSG_DONTWAIT);
}

bool SharePort(int fd)
{
    const int on = 1;
    return ::setsockopt(fd, SOL_SOCKET, SO_REUSEPORT, &on, sizeof on) == 0;
}
