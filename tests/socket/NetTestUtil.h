#pragma once
// Helpers for the tests that talk over loopback: every wait is bounded.
#include <memory>
#include <sys/time.h>

#include "share/socket/MSocket.h"

namespace socket_test
{
/// Bounds blocking receives and accepts on the socket, so a fault ends the
/// test instead of hanging it.
inline void BoundBlockingCalls(zul::socket::MSocket& socket, int nSeconds = 5)
{
    const timeval limit{nSeconds, 0};
    socket.SetOption(SOL_SOCKET, SO_RCVTIMEO, reinterpret_cast<const char*>(&limit), sizeof(limit));
}

/// A listening socket on 127.0.0.1 with a port of the system's choice.
inline std::unique_ptr<zul::socket::MSocket> MakeListener(int nBacklog = 8)
{
    auto listener = std::make_unique<zul::socket::MSocket>(0, true);
    listener->Bind(u"127.0.0.1", 0);
    listener->Listen(nBacklog);
    BoundBlockingCalls(*listener);
    return listener;
}

/// Both ends of one loopback connection.
struct Connection
{
    std::unique_ptr<zul::socket::MSocket> listener = MakeListener();
    std::unique_ptr<zul::socket::MSocket> client = std::make_unique<zul::socket::MSocket>(0, true);
    std::unique_ptr<zul::socket::MSocket> server;

    Connection()
    {
        if (client->Connect(u"127.0.0.1", listener->GetLocalPort(), 5000))
            server.reset(listener->Accept());
        if (server)
            BoundBlockingCalls(*server);
        BoundBlockingCalls(*client);
    }
};
} // namespace socket_test
