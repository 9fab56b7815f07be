#include "TcpSpeedService.h"

#include <algorithm>
#include <array>
#include <asio/write.hpp>
#include <chrono>
#include <cstdio>
#include <vector>

namespace
{
using Clock = std::chrono::steady_clock;
using Millis = std::chrono::milliseconds;

constexpr std::size_t kReadChunk = 16384;
constexpr std::size_t kWriteChunk = 65536;
// Small enough that a client writing to a server that stopped reading really
// blocks after a few blocks instead of filling a megabyte of buffers.
constexpr int kStalledReceiveBuffer = 4096;
constexpr Millis kAcceptBackoff{100};

// The download's content is never examined by the client.
const std::array<char, kWriteChunk> s_Zeros{};

std::string ToText(const asio::ip::tcp::endpoint& endpoint)
{
    return endpoint.address().to_string() + ":" + std::to_string(endpoint.port());
}

void LogTest(const std::string& peer, std::uint64_t up, std::uint64_t down, long long ms, const char* start,
             const char* end)
{
    char line[256];
    std::snprintf(line, sizeof line, "tcp %s up=%llu down=%llu ms=%lld start=%s end=%s", peer.c_str(),
                  static_cast<unsigned long long>(up), static_cast<unsigned long long>(down), ms, start, end);
    LogLine(line);
}

} // namespace

/// One client's test. Every handler holds the session alive; Finish closes the
/// socket, which makes the outstanding handlers return.
class TcpSpeedService::Session : public std::enable_shared_from_this<Session>
{
public:
    Session(TcpSpeedService& service, asio::ip::tcp::socket socket, std::string peer)
        : m_Service(service), m_Options(service.m_Options), m_Socket(std::move(socket)),
          m_Timer(service.m_Io), m_Peer(std::move(peer)), m_Buffer(kReadChunk)
    {
        m_Start = m_LastReceive = m_LastProgress = Clock::now();
    }

    void Start()
    {
        Read();
        ArmTimer();
    }

    void Finish(const char* end)
    {
        if (m_bFinished)
            return;
        m_bFinished = true;
        std::error_code ignored;
        m_Timer.cancel();
        m_Socket.close(ignored);
        const auto ms = std::chrono::duration_cast<Millis>(Clock::now() - m_Start).count();
        LogTest(m_Peer, m_Up, m_Down, ms, m_StartReason, end);
        m_Service.Remove(shared_from_this());
    }

    /// Connected but never sent a byte: what a flood of idle connections
    /// looks like, since a real client starts its upload at once.
    bool HasSentNothing() const { return m_Up == 0; }
    Clock::time_point GetStart() const { return m_Start; }

private:
    void Read()
    {
        if (m_bReading || m_bReadDone || m_bFinished)
            return;
        std::size_t room = m_Buffer.size();
        if (IsReadingStopped())
        {
            if (m_Up >= m_Options.m_StopReadingAfter)
                return;
            room =
                static_cast<std::size_t>(std::min<std::uint64_t>(room, m_Options.m_StopReadingAfter - m_Up));
        }
        m_bReading = true;
        m_Socket.async_read_some(asio::buffer(m_Buffer.data(), room),
                                 [self = shared_from_this()](const std::error_code& ec, std::size_t n)
                                 { self->OnRead(ec, n); });
    }

    // A stopped reader resumes once the download is out and the client's
    // upload phase is surely over, so that it drains what the client sent and
    // the close never resets a connection with unread data in it.
    bool IsReadingStopped() const { return m_Options.m_StopReadingAfter > 0 && !m_bReadingResumed; }

    void OnRead(const std::error_code& ec, std::size_t n)
    {
        m_bReading = false;
        if (m_bFinished)
            return;
        if (ec)
        {
            m_bReadDone = true;
            if (ec == asio::error::eof)
                Finish(m_bSendDone ? "completed" : "client-closed");
            else
                Finish("client-error");
            return;
        }
        const bool bFirstBytes = m_Up == 0 && n > 0;
        m_Up += n;
        m_LastReceive = m_LastProgress = Clock::now();
        if (!m_bSending && m_Up >= kExchangeBytes)
            StartDownload("full");
        else if (bFirstBytes)
            ArmTimer(); // the download deadlines start to count now
        Read();
    }

    void StartDownload(const char* reason)
    {
        m_bSending = true;
        m_StartReason = reason;
        if (m_Options.m_bSilent)
            return;
        m_DownTarget = kExchangeBytes;
        if (m_Options.m_CloseAfter > 0)
            m_DownTarget = std::min(m_DownTarget, m_Options.m_CloseAfter);
        Write();
    }

    void Write()
    {
        if (m_Down >= m_DownTarget)
        {
            EndDownload();
            return;
        }
        const auto n = static_cast<std::size_t>(std::min<std::uint64_t>(kWriteChunk, m_DownTarget - m_Down));
        m_Socket.async_write_some(asio::buffer(s_Zeros.data(), n),
                                  [self = shared_from_this()](const std::error_code& ec, std::size_t written)
                                  { self->OnWrite(ec, written); });
    }

    void OnWrite(const std::error_code& ec, std::size_t n)
    {
        if (m_bFinished)
            return;
        if (ec)
        {
            Finish("client-error");
            return;
        }
        m_Down += n;
        m_LastProgress = Clock::now();
        Write();
    }

    void EndDownload()
    {
        // Half-close: the client sees the end of the download at once, and we
        // drain what it still sends until it closes (bounded by the idle
        // time-out), so our close never resets data it has not read yet.
        m_bSendDone = true;
        std::error_code ignored;
        m_Socket.shutdown(asio::ip::tcp::socket::shutdown_send, ignored);
        if (m_bReadDone)
            Finish("completed");
        else
            Read();
    }

    void ArmTimer()
    {
        auto next = std::min(m_LastProgress + Millis(m_Options.m_IdleTimeoutMs),
                             m_Start + Millis(m_Options.m_SessionLimitMs));
        if (IsReadingStopped() && m_bSendDone)
            next = std::min(next, m_Start + Millis(m_Options.m_UploadLimitMs));
        if (IsDownloadDue())
            next = std::min({next, m_LastReceive + Millis(m_Options.m_UploadSilenceMs),
                             m_Start + Millis(m_Options.m_UploadLimitMs)});
        m_Timer.expires_at(next);
        m_Timer.async_wait([self = shared_from_this()](const std::error_code& ec) { self->OnTimer(ec); });
    }

    void OnTimer(const std::error_code& ec)
    {
        if (m_bFinished || ec == asio::error::operation_aborted)
            return;
        const auto now = Clock::now();
        if (now - m_Start >= Millis(m_Options.m_SessionLimitMs))
            return Finish("session-limit");
        if (now - m_LastProgress >= Millis(m_Options.m_IdleTimeoutMs))
            return Finish("idle-timeout");
        // The client never says that its upload ended early (its time limit,
        // a failed send): silence or its time limit has to stand for that.
        if (IsDownloadDue() && now - m_LastReceive >= Millis(m_Options.m_UploadSilenceMs))
            StartDownload("silence");
        else if (IsDownloadDue() && now - m_Start >= Millis(m_Options.m_UploadLimitMs))
            StartDownload("limit");
        if (IsReadingStopped() && m_bSendDone && now - m_Start >= Millis(m_Options.m_UploadLimitMs))
        {
            m_bReadingResumed = true;
            Read();
        }
        if (!m_bFinished)
            ArmTimer();
    }

    // A client that sent nothing gets no download on silence or at the limit:
    // 512 KB pushed into each of hundreds of idle connections would starve
    // the real tests; such a session ends at the idle time-out instead.
    bool IsDownloadDue() const { return !m_bSending && m_Up > 0; }

    TcpSpeedService& m_Service;
    const ServerOptions& m_Options;
    asio::ip::tcp::socket m_Socket;
    asio::steady_timer m_Timer;
    std::string m_Peer;
    std::vector<char> m_Buffer;

    Clock::time_point m_Start;
    Clock::time_point m_LastReceive;
    Clock::time_point m_LastProgress;
    std::uint64_t m_Up = 0;
    std::uint64_t m_Down = 0;
    std::uint64_t m_DownTarget = 0;
    const char* m_StartReason = "none";
    bool m_bReading = false;
    bool m_bReadDone = false;
    bool m_bSending = false;
    bool m_bSendDone = false;
    bool m_bFinished = false;
    bool m_bReadingResumed = false;
};

TcpSpeedService::TcpSpeedService(asio::io_context& io, const ServerOptions& options)
    : m_Io(io), m_Options(options), m_Acceptor(io), m_BackoffTimer(io)
{
}

TcpSpeedService::~TcpSpeedService() = default;

std::error_code TcpSpeedService::Listen(const asio::ip::tcp::endpoint& endpoint)
{
    std::error_code ec;
    m_Acceptor.open(endpoint.protocol(), ec);
    if (!ec)
        m_Acceptor.set_option(asio::socket_base::reuse_address(true), ec);
    // Accepted sockets inherit the buffer size, and it must be set before
    // listen() for the advertised window to be small from the first segment.
    if (!ec && m_Options.m_StopReadingAfter > 0)
        m_Acceptor.set_option(asio::socket_base::receive_buffer_size(kStalledReceiveBuffer), ec);
    if (!ec)
        m_Acceptor.bind(endpoint, ec);
    if (!ec)
        m_Acceptor.listen(asio::socket_base::max_listen_connections, ec);
    if (ec)
    {
        std::error_code ignored;
        m_Acceptor.close(ignored);
        return ec;
    }
    Accept();
    return {};
}

asio::ip::tcp::endpoint TcpSpeedService::LocalEndpoint() const
{
    std::error_code ec;
    return m_Acceptor.local_endpoint(ec);
}

void TcpSpeedService::Accept()
{
    m_Acceptor.async_accept([this](const std::error_code& ec, asio::ip::tcp::socket socket)
                            { OnAccept(ec, std::move(socket)); });
}

void TcpSpeedService::OnAccept(const std::error_code& ec, asio::ip::tcp::socket socket)
{
    if (!m_Acceptor.is_open() || ec == asio::error::operation_aborted)
        return;
    if (ec)
    {
        if (ec == asio::error::connection_aborted || ec == asio::error::connection_reset)
            return Accept();
        // No descriptors left (EMFILE, ENFILE) or any other lasting failure:
        // retrying at once would spin, so wait for sessions to end. Said once
        // per episode, not per retry.
        if (!m_bBackingOff)
            std::fprintf(stderr, "rig_test_server: accept failed: %s; retrying every %lld ms\n",
                         ec.message().c_str(), static_cast<long long>(kAcceptBackoff.count()));
        m_bBackingOff = true;
        m_BackoffTimer.expires_after(kAcceptBackoff);
        m_BackoffTimer.async_wait(
            [this](const std::error_code& waitError)
            {
                if (!waitError && m_Acceptor.is_open())
                    Accept();
            });
        return;
    }
    m_bBackingOff = false;
    std::error_code peerError;
    const std::string peer = ToText(socket.remote_endpoint(peerError));
    if (m_Sessions.size() >= m_Options.m_MaxConnections && !EvictSilentSession())
    {
        // Refused at once rather than left waiting in the backlog: a client
        // stuck there would measure nothing but its own time-outs.
        std::error_code ignored;
        socket.close(ignored);
        LogTest(peer, 0, 0, 0, "none", "refused-full");
        return Accept();
    }
    auto session = std::make_shared<Session>(*this, std::move(socket), peer);
    m_Sessions.insert(session);
    session->Start();
    Accept();
}

bool TcpSpeedService::EvictSilentSession()
{
    std::shared_ptr<Session> oldest;
    for (const auto& session : m_Sessions)
    {
        if (session->HasSentNothing() && (!oldest || session->GetStart() < oldest->GetStart()))
            oldest = session;
    }
    if (!oldest)
        return false;
    oldest->Finish("evicted-silent");
    return true;
}

void TcpSpeedService::Remove(const std::shared_ptr<Session>& session)
{
    m_Sessions.erase(session);
}

void TcpSpeedService::Stop()
{
    std::error_code ignored;
    m_Acceptor.close(ignored);
    m_BackoffTimer.cancel();
    const auto sessions = m_Sessions;
    for (const auto& session : sessions)
        session->Finish("server-stopped");
}
