#pragma once
// The server side of the UDP echo test: each valid ping is answered with a
// pong to the sender's address at the pong port. One service per thread, each
// with its own socket on the shared port; datagrams come and go in batches.
#include <asio/io_context.hpp>
#include <asio/ip/udp.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <cstdint>
#include <system_error>
#include <vector>

#include "DatagramBatch.h"
#include "ServerLimits.h"
#include "ServerMetrics.h"
#include "ServerOptions.h"

class UdpEchoService
{
public:
    /// Datagrams taken or sent per system call.
    static constexpr int kBatch = 64;

    UdpEchoService(asio::io_context& io, const ServerOptions& options, PongAdmission& admission,
                   ServerMetrics& metrics);

    /// Binds the endpoint; bShared lets the other threads' services bind the
    /// same port (SO_REUSEPORT), the system spreading senders over them.
    std::error_code Listen(const asio::ip::udp::endpoint& endpoint, bool bShared);
    asio::ip::udp::endpoint LocalEndpoint() const;

    /// Stops receiving and drops the pongs still delayed. On the service's thread.
    void Stop();

private:
    using Clock = std::chrono::steady_clock;
    struct DelayedPong
    {
        Clock::time_point m_Due;
        Datagram m_Pong;
    };

    void Wait();
    void OnReadable();
    void Answer(int nReceived, Clock::time_point now);
    /// Sends the first nCount of m_Out; what the system refuses is dropped.
    void SendOut(int nCount);
    void ArmDelayTimer(Clock::time_point notBefore = {});
    void OnDelayTimer(const std::error_code& ec);
    void SendDue(Clock::time_point now);

    const ServerOptions& m_Options;
    PongAdmission& m_Admission;
    ServerMetrics& m_Metrics;
    asio::ip::udp::socket m_Socket;
    asio::steady_timer m_DelayTimer;
    std::vector<Datagram> m_In;
    std::vector<Datagram> m_Out;
    // A ring of pongs waiting for their time, all with the same delay and
    // so in due order; bounded, since UDP may lose pongs anyway.
    std::vector<DelayedPong> m_Delayed;
    std::size_t m_DelayedHead = 0;
    std::size_t m_DelayedCount = 0;
    std::uint64_t m_Admitted = 0; // pings that passed the limits, for the fault modes
};
