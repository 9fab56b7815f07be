#pragma once
// The Prometheus scrape endpoint: a few lines of HTTP/1.1, one request per
// connection, no framework. Runs on its own thread's io_context.
#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <system_error>

#include "ServerMetrics.h"

class MetricsEndpoint
{
public:
    MetricsEndpoint(asio::io_context& io, const ServerMetrics& metrics);

    std::error_code Listen(const asio::ip::tcp::endpoint& endpoint);
    asio::ip::tcp::endpoint LocalEndpoint() const;
    /// Stops accepting; scrapes under way finish within their time limit.
    void Stop();

private:
    class Exchange;

    void Accept();

    const ServerMetrics& m_Metrics;
    asio::ip::tcp::acceptor m_Acceptor;
    asio::steady_timer m_BackoffTimer;
    int m_Open = 0;
};
