#pragma once
// The Prometheus scrape endpoint: a few lines of HTTP/1.1, one request per
// connection, no framework. Runs on its own thread's io_context.
#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/steady_timer.hpp>
#include <list>
#include <system_error>

#include "ServerMetrics.h"

class MetricsEndpoint
{
public:
    MetricsEndpoint(asio::io_context& io, const ServerMetrics& metrics);

    std::error_code Listen(const asio::ip::tcp::endpoint& endpoint);
    asio::ip::tcp::endpoint LocalEndpoint() const;
    /// Stops accepting and ends every connection at once, scrapes under way
    /// included: a stopping server waits for no scraper.
    void Stop();

private:
    class Exchange;

    void Accept();
    void Admit(asio::ip::tcp::socket socket);

    const ServerMetrics& m_Metrics;
    asio::ip::tcp::acceptor m_Acceptor;
    asio::steady_timer m_BackoffTimer;
    std::list<Exchange*> m_Live; // oldest first; each removes itself when it ends
};
