#include "DatagramSocket.h"

#include <cstdlib>
#include <cstring>

#include "DatagramPool.h"
#include "share/common/Assert.h"

namespace zul::socket
{
namespace
{
// The datagram pool lives in this file, beside ReceiveFrom, its only source:
// a static library's object file that nothing references is left out of the
// program, and the pool with it. Every program that can receive a datagram
// links this file, and so creates the pool during static initialisation.
DatagramPool* s_pDatagramPool = NULL;

void DeleteDatagramPool()
{
    if (s_pDatagramPool != NULL)
    {
        delete s_pDatagramPool;
        s_pDatagramPool = NULL;
    }
}

struct DatagramPoolCreator
{
    DatagramPoolCreator()
    {
        s_pDatagramPool = new DatagramPool(0);
        std::atexit(DeleteDatagramPool);
    }
};

const DatagramPoolCreator s_DatagramPoolCreator;
} // namespace

DatagramSocket::DatagramSocket(std::uint16_t port, bool bOverlapped)
    : m_Socket(kInvalidSocket), m_LocalAddr{}, m_RecvBuffer{}, m_LastError(0)
{
    // The expression text is part of the assertion record: keep it as written.
    // clang-format off
    ZUL_ASSERT(Create( bOverlapped ));
    // clang-format on
    std::memset(&m_LocalAddr, 0, sizeof(m_LocalAddr));
    if (port == 0)
        return;
    in_addr any{};
    any.s_addr = htonl(INADDR_ANY);
    m_LocalAddr = platform::MakeAddress(any, port);
    if (!platform::Bind(m_Socket, m_LocalAddr))
        Fail();
}

DatagramSocket::DatagramSocket(const tstring& host, std::uint16_t port, bool bOverlapped)
    : m_Socket(kInvalidSocket), m_LocalAddr{}, m_RecvBuffer{}, m_LastError(0)
{
    // The expression text is part of the assertion record: keep it as written.
    // clang-format off
    ZUL_ASSERT(Create( bOverlapped ));
    // clang-format on
    std::memset(&m_LocalAddr, 0, sizeof(m_LocalAddr));
    m_LocalAddr = platform::MakeAddress(platform::TextToAddress(host), port);
    if (!platform::Bind(m_Socket, m_LocalAddr))
        Fail();
}

DatagramSocket::~DatagramSocket()
{
    Close();
}

bool DatagramSocket::Fail()
{
    m_LastError = platform::LastError();
    return false;
}

bool DatagramSocket::Create(bool /*bOverlapped*/)
{
    // A second handle would otherwise leak: only the constructors call this.
    Close();
    m_Socket = platform::Open(platform::SocketKind::Datagram);
    return IsValid() || Fail();
}

bool DatagramSocket::Close()
{
    if (!IsValid())
        return false;
    platform::Close(m_Socket);
    m_Socket = kInvalidSocket;
    return true;
}

bool DatagramSocket::SetNonBlocking()
{
    return platform::SetNonBlocking(m_Socket, true) || Fail();
}

bool DatagramSocket::SetBlocking()
{
    return platform::SetNonBlocking(m_Socket, false) || Fail();
}

bool DatagramSocket::GetOption(int level, int name, char* pValue, int* pLength)
{
    return platform::GetOption(m_Socket, level, name, pValue, pLength) || Fail();
}

bool DatagramSocket::SetOption(int level, int name, const char* pValue, int nLength)
{
    return platform::SetOption(m_Socket, level, name, pValue, nLength) || Fail();
}

int DatagramSocket::GetIntOption(int level, int name)
{
    int value = 0;
    int length = sizeof(value);
    GetOption(level, name, reinterpret_cast<char*>(&value), &length);
    return value;
}

bool DatagramSocket::SetIntOption(int level, int name, int value)
{
    return SetOption(level, name, reinterpret_cast<const char*>(&value), sizeof(value));
}

int DatagramSocket::GetReceiveBufferSize()
{
    return GetIntOption(SOL_SOCKET, SO_RCVBUF);
}

bool DatagramSocket::SetReceiveBufferSize(int nSize)
{
    return SetIntOption(SOL_SOCKET, SO_RCVBUF, nSize);
}

int DatagramSocket::GetSendBufferSize()
{
    return GetIntOption(SOL_SOCKET, SO_SNDBUF);
}

bool DatagramSocket::SetSendBufferSize(int nSize)
{
    return SetIntOption(SOL_SOCKET, SO_SNDBUF, nSize);
}

int DatagramSocket::SendTo(const Datagram* pDatagram)
{
    ZUL_ASSERT(pDatagram != NULL);
    const int result =
        platform::SendTo(m_Socket, pDatagram->GetBuffer(), pDatagram->GetLength(), *pDatagram->GetSockAddr());
    if (result < 0)
    {
        Fail();
        return -1;
    }
    return result;
}

Datagram* DatagramSocket::ReceiveFrom()
{
    bool bTaken = false;
    return ReceiveFrom(bTaken);
}

Datagram* DatagramSocket::ReceiveFrom(bool& bTaken)
{
    sockaddr_in from{};
    const int count = platform::ReceiveFrom(m_Socket, m_RecvBuffer, kReceiveBufferSize, from);
    bTaken = count >= 0;
    if (count < static_cast<int>(Message::MSG_HEADER_SIZE))
        return NULL;
    Datagram* pDatagram = DatagramPool::GetInstance()->Acquire();
    ZUL_ASSERT(pDatagram != NULL);
    try
    {
        pDatagram->Reset();
        // An IPv4 datagram carries at most 65507 bytes, so the count fits.
        pDatagram->SetData(m_RecvBuffer, static_cast<std::uint16_t>(count));
        pDatagram->SetSockAddr(&from);
    }
    catch (...)
    {
        // The caller never saw it: give it back before the exception leaves.
        DatagramPool::GetInstance()->Release(pDatagram);
        throw;
    }
    return pDatagram;
}

tstring DatagramSocket::GetHost() const
{
    return platform::AddressToText(m_LocalAddr.sin_addr);
}

std::uint16_t DatagramSocket::GetPort() const
{
    return ntohs(m_LocalAddr.sin_port);
}
} // namespace zul::socket
