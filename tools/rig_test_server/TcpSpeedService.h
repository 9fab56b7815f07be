#pragma once
// The server side of the TCP speed test: take in the client's upload, then
// send the download, then close. One acceptor hands the connections out to
// the worker threads in turn; each thread serves many at once.
#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/steady_timer.hpp>
#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <system_error>
#include <unordered_map>
#include <vector>

#include "FileLimit.h"
#include "ServerLimits.h"
#include "ServerMetrics.h"
#include "ServerOptions.h"

class TcpSpeedService
{
public:
    /// Bytes the client uploads and then expects back: 512 blocks of 1024.
    static constexpr std::uint64_t kExchangeBytes = 524288;

    /// Accepts on acceptIo's thread and serves on the workers' (acceptIo may
    /// be one of them). Everything passed must outlive the service.
    TcpSpeedService(asio::io_context& acceptIo, const std::vector<asio::io_context*>& workers,
                    const ServerOptions& options, ConnectionLimits& limits, ServerMetrics& metrics);
    ~TcpSpeedService();
    TcpSpeedService(const TcpSpeedService&) = delete;
    TcpSpeedService& operator=(const TcpSpeedService&) = delete;

    /// Binds and starts accepting; the error when the endpoint cannot be bound.
    std::error_code Listen(const asio::ip::tcp::endpoint& endpoint);
    asio::ip::tcp::endpoint LocalEndpoint() const;

    /// Stops accepting and ends every connection (each logs its line); from
    /// any thread.
    void Stop();

private:
    class Session;
    class Worker;
    friend class Session;

    void Accept();
    void OnAccept(const std::error_code& ec, asio::ip::tcp::socket socket, Worker& worker);
    void OnAcceptError(const std::error_code& ec);
    /// Ends the source's oldest connection that has not sent a byte yet, so
    /// that a host's idle connections cannot keep its own real test out;
    /// false when it has none.
    bool EvictSilent(std::uint32_t source);
    void ListSilent(const std::shared_ptr<Session>& session);
    void UnlistSilent(const Session* pSession);

    asio::io_context& m_AcceptIo;
    const ServerOptions& m_Options;
    ConnectionLimits& m_Limits;
    ServerMetrics& m_Metrics;
    asio::ip::tcp::acceptor m_Acceptor;
    asio::steady_timer m_BackoffTimer;
    DescriptorReserve m_Reserve;
    bool m_bBackingOff = false;
    std::atomic<bool> m_bStopping{false};
    std::size_t m_NextWorker = 0;
    std::vector<std::unique_ptr<Worker>> m_Workers;

    struct SilentEntry
    {
        const Session* m_pSession;
        std::weak_ptr<Session> m_Session;
        Worker* m_pWorker;
    };
    std::mutex m_SilentMutex; // the acceptor's thread reads what the workers write
    std::unordered_map<std::uint32_t, std::deque<SilentEntry>> m_Silent; // per source, oldest first
};
