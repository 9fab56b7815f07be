#pragma once
// The server side of the UDP echo test: each valid ping is answered with a
// pong to the sender's address at the pong port.
#include <asio/io_context.hpp>
#include <asio/ip/udp.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <cstdint>
#include <deque>
#include <system_error>
#include <vector>

#include "ServerOptions.h"
#include "SourceRateLimiter.h"

class UdpEchoService
{
public:
    UdpEchoService(asio::io_context& io, const ServerOptions& options);

    std::error_code Listen(const asio::ip::udp::endpoint& endpoint);
    asio::ip::udp::endpoint LocalEndpoint() const;

    /// Stops receiving, drops the pongs still delayed and logs the totals.
    void Stop();

private:
    using Bytes = std::vector<std::uint8_t>;
    struct DelayedPong
    {
        std::chrono::steady_clock::time_point m_Due;
        asio::ip::udp::endpoint m_To;
        Bytes m_Data;
    };

    void Receive();
    void OnReceive(const std::error_code& ec, std::size_t n);
    void Answer(std::size_t nRequest);
    void Send(const asio::ip::udp::endpoint& to, const Bytes& data);
    void ArmDelayTimer();
    void OnDelayTimer(const std::error_code& ec);

    const ServerOptions& m_Options;
    asio::ip::udp::socket m_Socket;
    asio::steady_timer m_DelayTimer;
    asio::ip::udp::endpoint m_Sender;
    Bytes m_Buffer;
    SourceRateLimiter m_Limiter;
    std::deque<DelayedPong> m_Delayed;

    std::uint64_t m_Pings = 0;
    std::uint64_t m_Admitted = 0; // pings that passed the rate limit
    std::uint64_t m_Pongs = 0;
    std::uint64_t m_Ignored = 0;
    std::uint64_t m_Limited = 0;
    std::uint64_t m_Dropped = 0;
};
