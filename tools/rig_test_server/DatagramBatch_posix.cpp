#include "DatagramBatch.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
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
    alignas(cmsghdr) char controls[kMaxBatch][CMSG_SPACE(sizeof(in_pktinfo))];
    const int n = nCount < kMaxBatch ? nCount : kMaxBatch;
    for (int i = 0; i < n; ++i)
    {
        vectors[i] = {pDatagrams[i].m_Data.data(), Datagram::kCapacity};
        messages[i] = {};
        messages[i].msg_hdr.msg_name = &peers[i];
        messages[i].msg_hdr.msg_namelen = sizeof peers[i];
        messages[i].msg_hdr.msg_iov = &vectors[i];
        messages[i].msg_hdr.msg_iovlen = 1;
        messages[i].msg_hdr.msg_control = controls[i];
        messages[i].msg_hdr.msg_controllen = sizeof controls[i];
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
        d.m_Destination = 0;
        for (cmsghdr* c = CMSG_FIRSTHDR(&messages[i].msg_hdr); c; c = CMSG_NXTHDR(&messages[i].msg_hdr, c))
        {
            if (c->cmsg_level == IPPROTO_IP && c->cmsg_type == IP_PKTINFO)
            {
                in_pktinfo info;
                std::memcpy(&info, CMSG_DATA(c), sizeof info);
                d.m_Destination = ntohl(info.ipi_addr.s_addr);
            }
        }
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

bool EnableDestination(int fd)
{
    const int on = 1;
    return ::setsockopt(fd, IPPROTO_IP, IP_PKTINFO, &on, sizeof on) == 0;
}

bool SharePort(int fd)
{
    const int on = 1;
    return ::setsockopt(fd, SOL_SOCKET, SO_REUSEPORT, &on, sizeof on) == 0;
}
