#include "MetricsEndpoint.h"

#include "Listening.h"

#include <array>
#include <asio/steady_timer.hpp>
#include <asio/write.hpp>
#include <chrono>
#include <memory>
#include <string>
#include <string_view>

namespace
{
constexpr std::size_t kMaxRequest = 8192;
constexpr int kMaxOpen = 16;
constexpr std::chrono::seconds kTimeLimit{5};
} // namespace

/// One scrape: read the request head, answer, close.
class MetricsEndpoint::Exchange : public std::enable_shared_from_this<Exchange>
{
public:
    Exchange(MetricsEndpoint& endpoint, asio::ip::tcp::socket socket)
        : m_Endpoint(endpoint), m_Socket(std::move(socket)), m_Timer(m_Socket.get_executor())
    {
        ++m_Endpoint.m_Open;
    }
    ~Exchange() { --m_Endpoint.m_Open; }

    void Start()
    {
        m_Timer.expires_after(kTimeLimit);
        m_Timer.async_wait(
            [self = shared_from_this()](const std::error_code& ec)
            {
                std::error_code ignored;
                if (!ec)
                    self->m_Socket.close(ignored);
            });
        Read();
    }

private:
    void Read()
    {
        m_Socket.async_read_some(asio::buffer(m_Chunk),
                                 [self = shared_from_this()](const std::error_code& ec, std::size_t n)
                                 { self->OnRead(ec, n); });
    }

    void OnRead(const std::error_code& ec, std::size_t n)
    {
        if (ec)
            return Close();
        m_Request.append(m_Chunk.data(), n);
        if (m_Request.find("\r\n\r\n") == std::string::npos)
        {
            if (m_Request.size() > kMaxRequest)
                return Close();
            return Read();
        }
        const std::string_view line(m_Request.data(), m_Request.find("\r\n"));
        const bool bMetrics = line.starts_with("GET /metrics ") || line.starts_with("GET / ");
        const std::string body = bMetrics ? m_Endpoint.m_Metrics.Render() : "not found\n";
        m_Response = std::string(bMetrics ? "HTTP/1.1 200 OK\r\n" : "HTTP/1.1 404 Not Found\r\n") +
                     "Content-Type: text/plain; version=0.0.4; charset=utf-8\r\n" +
                     "Content-Length: " + std::to_string(body.size()) + "\r\nConnection: close\r\n\r\n" +
                     body;
        asio::async_write(m_Socket, asio::buffer(m_Response),
                          [self = shared_from_this()](const std::error_code&, std::size_t)
                          { self->Close(); });
    }

    void Close()
    {
        std::error_code ignored;
        m_Socket.shutdown(asio::ip::tcp::socket::shutdown_both, ignored);
        m_Socket.close(ignored);
        m_Timer.cancel();
    }

    MetricsEndpoint& m_Endpoint;
    asio::ip::tcp::socket m_Socket;
    asio::steady_timer m_Timer;
    std::array<char, 1024> m_Chunk{};
    std::string m_Request;
    std::string m_Response;
};

MetricsEndpoint::MetricsEndpoint(asio::io_context& io, const ServerMetrics& metrics)
    : m_Metrics(metrics), m_Acceptor(io), m_BackoffTimer(io)
{
}

std::error_code MetricsEndpoint::Listen(const asio::ip::tcp::endpoint& endpoint)
{
    if (const std::error_code ec = OpenListening(m_Acceptor, endpoint))
        return ec;
    Accept();
    return {};
}

asio::ip::tcp::endpoint MetricsEndpoint::LocalEndpoint() const
{
    std::error_code ec;
    return m_Acceptor.local_endpoint(ec);
}

void MetricsEndpoint::Accept()
{
    m_Acceptor.async_accept(
        [this](const std::error_code& ec, asio::ip::tcp::socket socket)
        {
            if (!m_Acceptor.is_open() || ec == asio::error::operation_aborted)
                return;
            if (ec)
            {
                // Out of descriptors, most likely: wait instead of spinning.
                m_BackoffTimer.expires_after(std::chrono::milliseconds(100));
                m_BackoffTimer.async_wait(
                    [this](const std::error_code& waitError)
                    {
                        if (!waitError && m_Acceptor.is_open())
                            Accept();
                    });
                return;
            }
            // A scraper that opens connections without end gets no more
            // than a few at once.
            if (m_Open < kMaxOpen)
                std::make_shared<Exchange>(*this, std::move(socket))->Start();
            Accept();
        });
}

void MetricsEndpoint::Stop()
{
    std::error_code ignored;
    m_Acceptor.close(ignored);
    m_BackoffTimer.cancel();
}
