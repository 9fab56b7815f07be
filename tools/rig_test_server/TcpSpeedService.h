#pragma once
// The server side of the TCP speed test: take in the client's upload, then
// send the download, then close; many connections at once on one thread.
#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/steady_timer.hpp>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <system_error>

#include "ServerOptions.h"

class TcpSpeedService
{
public:
    /// Bytes the client uploads and then expects back: 512 blocks of 1024.
    static constexpr std::uint64_t kExchangeBytes = 524288;

    TcpSpeedService(asio::io_context& io, const ServerOptions& options);
    ~TcpSpeedService();
    TcpSpeedService(const TcpSpeedService&) = delete;
    TcpSpeedService& operator=(const TcpSpeedService&) = delete;

    /// Binds and starts accepting; the error when the endpoint cannot be bound.
    std::error_code Listen(const asio::ip::tcp::endpoint& endpoint);
    asio::ip::tcp::endpoint LocalEndpoint() const;

    /// Stops accepting and ends every connection (each logs its line).
    void Stop();

private:
    class Session;
    friend class Session;

    void Accept();
    void OnAccept(const std::error_code& ec, asio::ip::tcp::socket socket);
    void Remove(const std::shared_ptr<Session>& session);
    /// When full: ends the oldest connection that has not sent a byte, so
    /// that idle connections cannot lock real tests out. False when none has.
    bool EvictSilentSession();

    asio::io_context& m_Io;
    const ServerOptions& m_Options;
    asio::ip::tcp::acceptor m_Acceptor;
    asio::steady_timer m_BackoffTimer;
    bool m_bBackingOff = false;
    std::set<std::shared_ptr<Session>> m_Sessions;
};
