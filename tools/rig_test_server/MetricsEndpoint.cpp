#include "MetricsEndpoint.h"

#include "Listening.h"

#include <array>
#include <asio/write.hpp>
#include <chrono>
#include <memory>
#include <string>
#include <string_view>

namespace
{
constexpr std::size_t kMaxRequest = 8192;
// Far more than scrapers ever open at once; when every slot is taken, the
// oldest connection still waiting for its request gives its slot up, so
// clients that connect and say nothing cannot keep a scrape out.
constexpr std::size_t kMaxOpen = 64;
// A scraper sends its request as it connects; one that has not within this
// long is not a scraper.
constexpr std::chrono::seconds kHeaderLimit{2};
constexpr std::chrono::seconds kAnswerLimit{5};
} // namespace

/// One scrape: read the request head, answer, close.
class MetricsEndpoint::Exchange : public std::enable_shared_from_this<Exchange>
{
public:
    Exchange(MetricsEndpoint& endpoint, asio::ip::tcp::socket socket)
        : m_Endpoint(endpoint), m_Socket(std::move(socket)), m_Timer(m_Socket.get_executor()),
          m_Position(endpoint.m_Live.insert(endpoint.m_Live.end(), this))
    {
    }
    ~Exchange() { m_Endpoint.m_Live.erase(m_Position); }
    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;

    void Start()
    {
        Limit(kHeaderLimit);
        Read();
    }

    /// Still taking a slot: not closed yet.
    bool IsOpen() const { return !m_bClosed; }
    /// Still waiting for its request: the one to give up a slot.
    bool IsWaiting() const { return !m_bClosed && !m_bAnswering; }

    void Close()
    {
        if (m_bClosed)
            return;
        m_bClosed = true;
        std::error_code ignored;
        m_Socket.shutdown(asio::ip::tcp::socket::shutdown_both, ignored);
        m_Socket.close(ignored);
        m_Timer.cancel();
    }

private:
    void Limit(std::chrono::seconds limit)
    {
        m_Timer.expires_after(limit);
        m_Timer.async_wait(
            [self = shared_from_this()](const std::error_code& ec)
            {
                if (!ec)
                    self->Close();
            });
    }

    void Read()
    {
        m_Socket.async_read_some(asio::buffer(m_Chunk),
                                 [self = shared_from_this()](const std::error_code& ec, std::size_t n)
                                 { self->OnRead(ec, n); });
    }

    void OnRead(const std::error_code& ec, std::size_t n)
    {
        if (ec || m_bClosed)
            return Close();
        m_Request.append(m_Chunk.data(), n);
        if (m_Request.find("\r\n\r\n") == std::string::npos)
        {
            if (m_Request.size() > kMaxRequest)
                return Close();
            return Read();
        }
        // One request per connection: whatever follows the head is never read.
        m_bAnswering = true;
        const std::string_view line(m_Request.data(), m_Request.find("\r\n"));
        const bool bMetrics = line.starts_with("GET /metrics ") || line.starts_with("GET / ");
        const std::string body = bMetrics ? m_Endpoint.m_Metrics.Render() : "not found\n";
        m_Response = std::string(bMetrics ? "HTTP/1.1 200 OK\r\n" : "HTTP/1.1 404 Not Found\r\n") +
                     "Content-Type: text/plain; version=0.0.4; charset=utf-8\r\n" +
                     "Content-Length: " + std::to_string(body.size()) + "\r\nConnection: close\r\n\r\n" +
                     body;
        m_Timer.cancel();
        Limit(kAnswerLimit);
        asio::async_write(m_Socket, asio::buffer(m_Response),
                          [self = shared_from_this()](const std::error_code&, std::size_t)
                          { self->Close(); });
    }

    MetricsEndpoint& m_Endpoint;
    asio::ip::tcp::socket m_Socket;
    asio::steady_timer m_Timer;
    std::list<Exchange*>::iterator m_Position;
    bool m_bClosed = false;
    bool m_bAnswering = false;
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
            Admit(std::move(socket));
            Accept();
        });
}

void MetricsEndpoint::Admit(asio::ip::tcp::socket socket)
{
    std::size_t open = 0;
    Exchange* pOldestWaiting = nullptr;
    for (Exchange* exchange : m_Live)
    {
        if (exchange->IsOpen())
            ++open;
        if (pOldestWaiting == nullptr && exchange->IsWaiting())
            pOldestWaiting = exchange;
    }
    if (open >= kMaxOpen)
    {
        // Every slot answering a request: those end within their limit.
        if (pOldestWaiting == nullptr)
            return;
        pOldestWaiting->Close();
    }
    std::make_shared<Exchange>(*this, std::move(socket))->Start();
}

void MetricsEndpoint::Stop()
{
    std::error_code ignored;
    m_Acceptor.close(ignored);
    m_BackoffTimer.cancel();
    for (Exchange* exchange : m_Live)
        exchange->Close();
}
