#include "TcpSpeedService.h"

#include "Listening.h"

#include <algorithm>
#include <array>
#include <asio/post.hpp>
#include <asio/write.hpp>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <string_view>
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
// An upload must bring this much in its first kUploadGrace and keep the
// minimum rate after it: a real client sends its first block at once.
constexpr std::uint64_t kFirstUploadBytes = 1024;
constexpr Millis kUploadGrace{2000};
constexpr Millis kUploadCheck{500};

// The download's content is never examined by the client.
const std::array<char, kWriteChunk> s_Zeros{};

std::string ToText(const asio::ip::tcp::endpoint& endpoint)
{
    return endpoint.address().to_string() + ":" + std::to_string(endpoint.port());
}

void LogTest(const ServerOptions& options, const std::string& peer, std::uint64_t up, std::uint64_t down,
             long long ms, const char* start, const char* end)
{
    // Every field is an address, a number or one of our own words: nothing
    // needs escaping.
    const char* format =
        options.m_bJsonLog
            ? R"({"event":"tcp_test","peer":"%s","up":%llu,"down":%llu,"ms":%lld,"start":"%s","end":"%s"})"
            : "tcp %s up=%llu down=%llu ms=%lld start=%s end=%s";
    char line[256];
    std::snprintf(line, sizeof line, format, peer.c_str(), static_cast<unsigned long long>(up),
                  static_cast<unsigned long long>(down), ms, start, end);
    LogLine(line);
}

} // namespace

/// The connections one thread serves. Their uploads are read into one
/// buffer and thrown away: only the count matters, and a buffer per
/// connection would be most of a connection's memory.
class TcpSpeedService::Worker
{
public:
    explicit Worker(asio::io_context& io) : m_Io(io), m_Discard(kReadChunk) {}

    asio::io_context& m_Io;
    std::vector<char> m_Discard;
    std::set<std::shared_ptr<Session>> m_Sessions;
};

/// One client's test, on its worker's thread. Every handler holds the session
/// alive; Finish closes the socket, which makes the outstanding handlers return.
class TcpSpeedService::Session : public std::enable_shared_from_this<Session>
{
public:
    Session(TcpSpeedService& service, Worker& worker, asio::ip::tcp::socket socket, std::uint32_t source,
            std::string peer)
        : m_Service(service), m_Worker(worker), m_Options(service.m_Options), m_Socket(std::move(socket)),
          m_Timer(worker.m_Io), m_Source(source), m_Peer(std::move(peer))
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
        if (m_Up == 0)
            m_Service.UnlistSilent(this);
        std::error_code ignored;
        m_Timer.cancel();
        m_Socket.close(ignored);
        const auto now = Clock::now();
        const auto ms = std::chrono::duration_cast<Millis>(now - m_Start).count();
        ServerMetrics& metrics = m_Service.m_Metrics;
        if (std::string_view(end) == "completed")
        {
            ServerMetrics::Add(metrics.m_TestsCompleted);
            metrics.m_TestDuration.Observe(std::chrono::duration<double>(now - m_Start).count());
            metrics.m_UploadDuration.Observe(
                std::chrono::duration<double>(m_DownloadStart - m_Start).count());
        }
        ServerMetrics::Add(metrics.m_TestsEnded);
        metrics.m_ConnectionsActive.fetch_sub(1, std::memory_order_relaxed);
        // Logged once counted, so whoever reads the line finds it in the metrics.
        LogTest(m_Options, m_Peer, m_Up, m_Down, ms, m_StartReason, end);
        m_Service.m_Limits.Close(m_Source);
        m_Worker.m_Sessions.erase(shared_from_this());
    }

private:
    void Read()
    {
        if (m_bReading || m_bReadDone || m_bFinished)
            return;
        std::size_t room = kReadChunk;
        if (IsReadingStopped())
        {
            if (m_Up >= m_Options.m_StopReadingAfter)
                return;
            room =
                static_cast<std::size_t>(std::min<std::uint64_t>(room, m_Options.m_StopReadingAfter - m_Up));
        }
        m_bReading = true;
        m_Socket.async_read_some(asio::buffer(m_Worker.m_Discard.data(), room),
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
        if (bFirstBytes)
            m_Service.UnlistSilent(this);
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
        m_DownloadStart = Clock::now();
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
        if (IsUploadWatched())
            next = std::min(next, std::max(m_Start + kUploadGrace, Clock::now() + kUploadCheck));
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
        if (IsUploadTooSlow(now))
        {
            ServerMetrics::Add(m_Service.m_Metrics.m_EvictedSlow);
            return Finish("evicted-slow");
        }
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

    // Far slower than any real client's upload: a connection held open at
    // almost no cost to its sender, keeping a place a real test needs.
    // While the server itself stops reading, the client is not to blame.
    bool IsUploadWatched() const
    {
        return !m_bSending && !IsReadingStopped() && m_Options.m_MinUploadRate > 0;
    }
    bool IsUploadTooSlow(Clock::time_point now) const
    {
        if (!IsUploadWatched() || now - m_Start < kUploadGrace)
            return false;
        const double seconds = std::chrono::duration<double>(now - m_Start - kUploadGrace).count();
        // What waits unread counts too: a server too busy to read is not
        // the client's fault.
        std::error_code ec;
        const std::size_t waiting = m_Socket.available(ec);
        return static_cast<double>(m_Up + waiting) <
               static_cast<double>(kFirstUploadBytes) + seconds * m_Options.m_MinUploadRate;
    }

    TcpSpeedService& m_Service;
    Worker& m_Worker;
    const ServerOptions& m_Options;
    asio::ip::tcp::socket m_Socket;
    asio::steady_timer m_Timer;

public:
    const std::uint32_t m_Source;
    Worker& GetWorker() const { return m_Worker; }

private:
    std::string m_Peer;

    Clock::time_point m_Start;
    Clock::time_point m_DownloadStart;
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

TcpSpeedService::TcpSpeedService(asio::io_context& acceptIo, const std::vector<asio::io_context*>& workers,
                                 const ServerOptions& options, ConnectionLimits& limits,
                                 ServerMetrics& metrics)
    : m_AcceptIo(acceptIo), m_Options(options), m_Limits(limits), m_Metrics(metrics), m_Acceptor(acceptIo),
      m_BackoffTimer(acceptIo)
{
    for (asio::io_context* io : workers)
        m_Workers.push_back(std::make_unique<Worker>(*io));
}

TcpSpeedService::~TcpSpeedService() = default;

std::error_code TcpSpeedService::Listen(const asio::ip::tcp::endpoint& endpoint)
{
    // Accepted sockets inherit the small buffer of a server that stops
    // reading, so that their window is small from the first segment.
    if (const std::error_code ec =
            OpenListening(m_Acceptor, endpoint, m_Options.m_StopReadingAfter > 0 ? kStalledReceiveBuffer : 0))
        return ec;
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
    // Each connection goes to the next worker's thread, where it stays.
    Worker& worker = *m_Workers[m_NextWorker++ % m_Workers.size()];
    m_Acceptor.async_accept(worker.m_Io,
                            [this, &worker](const std::error_code& ec, asio::ip::tcp::socket socket)
                            { OnAccept(ec, std::move(socket), worker); });
}

void TcpSpeedService::OnAccept(const std::error_code& ec, asio::ip::tcp::socket socket, Worker& worker)
{
    if (!m_Acceptor.is_open() || ec == asio::error::operation_aborted)
        return;
    if (ec)
        return OnAcceptError(ec);
    m_bBackingOff = false;
    std::error_code peerError;
    const auto remote = socket.remote_endpoint(peerError);
    if (peerError || !remote.address().is_v4())
        return Accept(); // gone already; closed with the socket
    const std::uint32_t source = remote.address().to_v4().to_uint();
    auto admission = m_Limits.TryOpen(source);
    if (admission == ConnectionLimits::Admission::SourceFull && EvictSilent(source))
        admission = m_Limits.OpenBeyondShare(source) ? ConnectionLimits::Admission::Admitted
                                                     : ConnectionLimits::Admission::Full;
    if (admission != ConnectionLimits::Admission::Admitted)
    {
        // Refused at once rather than left waiting in the backlog: a client
        // stuck there would measure nothing but its own time-outs.
        const bool bFull = admission == ConnectionLimits::Admission::Full;
        ServerMetrics::Add(bFull ? m_Metrics.m_RefusedFull : m_Metrics.m_RefusedSource);
        std::error_code ignored;
        socket.close(ignored);
        LogTest(m_Options, ToText(remote), 0, 0, 0, "none", bFull ? "refused-full" : "refused-source");
        return Accept();
    }
    m_Metrics.m_ConnectionsActive.fetch_add(1, std::memory_order_relaxed);
    // Made here and listed as silent at once, so that the next newcomer
    // from the same address already sees it; it runs on its worker's thread.
    auto session = std::make_shared<Session>(*this, worker, std::move(socket), source, ToText(remote));
    ListSilent(session);
    asio::post(worker.m_Io,
               [this, &worker, session]
               {
                   worker.m_Sessions.insert(session);
                   if (m_bStopping.load())
                       session->Finish("server-stopped"); // Stop has swept this worker already
                   else
                       session->Start();
               });
    Accept();
}

void TcpSpeedService::ListSilent(const std::shared_ptr<Session>& session)
{
    std::lock_guard lock(m_SilentMutex);
    m_Silent[session->m_Source].push_back({session.get(), session, &session->GetWorker()});
}

void TcpSpeedService::UnlistSilent(const Session* pSession)
{
    std::lock_guard lock(m_SilentMutex);
    const auto it = m_Silent.find(pSession->m_Source);
    if (it == m_Silent.end())
        return;
    std::erase_if(it->second, [&](const SilentEntry& entry) { return entry.m_pSession == pSession; });
    if (it->second.empty())
        m_Silent.erase(it);
}

bool TcpSpeedService::EvictSilent(std::uint32_t source)
{
    std::lock_guard lock(m_SilentMutex);
    const auto it = m_Silent.find(source);
    if (it == m_Silent.end())
        return false;
    // Taken off the list here, so that no second newcomer counts on the same
    // place; the session ends on its own thread and gives the place back.
    const SilentEntry oldest = it->second.front();
    it->second.pop_front();
    if (it->second.empty())
        m_Silent.erase(it);
    asio::post(oldest.m_pWorker->m_Io,
               [session = oldest.m_Session]
               {
                   if (const auto alive = session.lock())
                       alive->Finish("evicted-silent");
               });
    return true;
}

void TcpSpeedService::OnAcceptError(const std::error_code& ec)
{
    if (ec == asio::error::connection_aborted || ec == asio::error::connection_reset)
        return Accept();
    // Out of descriptors, the waiting connection is refused with the one
    // held in reserve for this, so that its client learns at once; any other
    // lasting failure waits, since retrying at once would spin. Said once
    // per episode, not per connection.
    const bool bNoDescriptors = ec == asio::error::no_descriptors || ec.value() == ENFILE;
    if (!m_bBackingOff)
        std::fprintf(stderr, "rig_test_server: accept failed: %s; %s\n", ec.message().c_str(),
                     bNoDescriptors ? "refusing connections until some end" : "retrying every 100 ms");
    m_bBackingOff = true;
    if (bNoDescriptors && m_Reserve.RefuseOne(m_Acceptor.native_handle()))
    {
        ServerMetrics::Add(m_Metrics.m_RefusedDescriptors);
        return Accept();
    }
    m_BackoffTimer.expires_after(kAcceptBackoff);
    m_BackoffTimer.async_wait(
        [this](const std::error_code& waitError)
        {
            if (!waitError && m_Acceptor.is_open())
                Accept();
        });
}

void TcpSpeedService::Stop()
{
    m_bStopping = true;
    asio::post(m_AcceptIo,
               [this]
               {
                   std::error_code ignored;
                   m_Acceptor.close(ignored);
                   m_BackoffTimer.cancel();
               });
    for (const auto& worker : m_Workers)
        asio::post(worker->m_Io,
                   [&worker = *worker]
                   {
                       const auto sessions = worker.m_Sessions;
                       for (const auto& session : sessions)
                           session->Finish("server-stopped");
                   });
}
