#pragma once
// The program's one pool of datagrams. It exists from static initialisation
// to process exit in every program that links DatagramSocket::ReceiveFrom;
// reach it with DatagramPool::GetInstance().
#include "Datagram.h"
#include "share/common/MPool.h"

namespace zul::socket
{
typedef zul::MThreadedPool<Datagram, zul::NewAllocator<Datagram>> DatagramPool;
} // namespace zul::socket
