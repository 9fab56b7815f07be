#include "ExtendedService.h"

#include "Listening.h"

#include <algorithm>
#include <asio/read.hpp>
#include <asio/steady_timer.hpp>
#include <asio/write.hpp>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>

using extended::Message;
using extended::Type;

namespace
{
constexpr std::size_t kMaxDatagram = 65536;
// A client sends about 500 probes a run; more are echoed but not counted.
constexpr std::uint32_t kMaxCountedProbes = 8192;
constexpr std::size_t kMaxDelayed = 4096;
constexpr std::size_t kStreamChunk = 64 * 1024;
// A stream that outlives its duration by this much is cut, whatever the peer does.
constexpr auto kStreamGrace = std::chrono::seconds(2);
// The client writes its header as soon as it is connected: a connection
// silent for this long is not a client, and must not hold a place.
constexpr auto kHeaderDeadline = std::chrono::milliseconds(1500);
// How long a refused stream waits for its peer to take the Busy record before
// it is closed: a close with unread bytes would reset it, and lose the record.
constexpr auto kBusyLinger = std::chrono::milliseconds(500);
// Retry-after hints: a session frees within its idle time, streams within a
// run's two throughput phases.
constexpr std::uint64_t kSessionsRetryMs = 5000;
constexpr std::uint64_t kStreamsRetryMs = 8000;
constexpr int kDatagramsPerTurn = 256;
constexpr int kAcceptsPerTurn = 256;
constexpr int kProbeBuffer = 4 * 1024 * 1024;
constexpr auto kSweepEvery = std::chrono::seconds(1);
constexpr auto kRandomKeyLife = std::chrono::hours(1);

std::uint32_t SourceOf(const asio::ip::address& address)
{
    return address.is_v4() ? address.to_v4().to_uint() : 0;
}
} // namespace

// One TCP stream of a throughput phase: a header record, then bytes one way
// until its duration is over; or a Busy record when there is no room for it.
class ExtendedStream : public std::enable_shared_from_this<ExtendedStream>
{
public:
    ExtendedStream(ExtendedService& service, asio::ip::tcp::socket socket, std::uint32_t source)
        : m_Service(service), m_Socket(std::move(socket)), m_Timer(service.m_Io), m_Buffer(kStreamChunk),
          m_Source(source)
    {
    }

    ~ExtendedStream()
    {
        if (m_bPending)
            m_Service.m_Admission.ClosePending(m_Source);
        if (!m_bAdmitted)
            return;
        m_Service.m_Admission.CloseStream(m_Source);
        m_Service.m_Metrics.m_ExtStreamsActive.fetch_sub(1, std::memory_order_relaxed);
        const auto it = m_Service.m_Sessions.find(m_Cookie);
        if (it != m_Service.m_Sessions.end() && it->second.m_Streams[m_Direction] > 0)
            --it->second.m_Streams[m_Direction];
    }

    void Start()
    {
        Arm(kHeaderDeadline);
        asio::async_read(m_Socket, asio::buffer(m_Buffer.data(), extended::kMinMessage),
                         [self = shared_from_this()](const std::error_code& ec, std::size_t n)
                         {
                             if (!ec)
                                 return self->OnHeader(n);
                             ServerMetrics::Add(self->m_Service.m_Metrics.m_ExtStreamsRefusedHeader);
                             self->Close();
                         });
    }

    void Close()
    {
        std::error_code ignored;
        m_Timer.cancel();
        m_Socket.close(ignored);
    }

private:
    void Arm(ExtendedService::Clock::duration limit)
    {
        m_Timer.expires_after(limit);
        m_Timer.async_wait(
            [self = shared_from_this()](const std::error_code& ec)
            {
                if (!ec)
                    self->Close();
            });
    }

    void OnHeader(std::size_t n)
    {
        m_bPending = false;
        m_Service.m_Admission.ClosePending(m_Source);
        auto& metrics = m_Service.m_Metrics;
        std::error_code ec;
        const auto peer = m_Socket.remote_endpoint(ec);
        const auto header = extended::Decode(m_Buffer.data(), n);
        if (ec || !header || (header->type != Type::Upload && header->type != Type::Download))
        {
            ServerMetrics::Add(metrics.m_ExtStreamsRefusedHeader);
            return Close();
        }
        auto* pSession = m_Service.FindSession(header->cookie, peer.address());
        if (pSession == nullptr)
        {
            ServerMetrics::Add(metrics.m_ExtStreamsRefusedSession);
            return Close();
        }
        m_Cookie = header->cookie;
        m_Direction = header->type == Type::Upload ? 0 : 1;
        const auto verdict =
            m_Service.m_Admission.OpenStream(m_Source, pSession->m_Streams[m_Direction] == 0);
        if (verdict != ExtendedAdmission::Verdict::Admitted)
        {
            ServerMetrics::Add(verdict == ExtendedAdmission::Verdict::SourceFull
                                   ? metrics.m_ExtStreamsRefusedSource
                                   : metrics.m_ExtStreamsRefusedBudget);
            return Refuse();
        }
        m_bAdmitted = true;
        ++pSession->m_Streams[m_Direction];
        metrics.m_ExtStreamsActive.fetch_add(1, std::memory_order_relaxed);
        // The download's bytes must never read as a record.
        std::fill(m_Buffer.begin(), m_Buffer.end(), std::uint8_t{0});
        m_End = ExtendedService::Clock::now() +
                std::chrono::milliseconds(std::min<std::uint64_t>(header->a, ExtendedService::kMaxStreamMs));
        m_Timer.cancel();
        Arm(m_End - ExtendedService::Clock::now() + kStreamGrace);
        if (header->type == Type::Download)
            return Write();
        if (!pSession->m_bUploadStarted)
        {
            pSession->m_bUploadStarted = true;
            pSession->m_UploadStart = ExtendedService::Clock::now();
            pSession->m_UploadBuckets.assign(ExtendedService::kMaxStreamMs / ExtendedService::kBucket.count(),
                                             0);
        }
        Read();
    }

    void Refuse()
    {
        m_Busy = extended::Encode({Type::Busy, m_Cookie, 0, kStreamsRetryMs,
                                   static_cast<std::uint64_t>(extended::BusyReason::Streams)});
        m_Timer.cancel();
        Arm(kBusyLinger);
        asio::async_write(m_Socket, asio::buffer(m_Busy),
                          [self = shared_from_this()](const std::error_code& ec, std::size_t)
                          {
                              if (ec)
                                  return self->Close();
                              std::error_code ignored;
                              self->m_Socket.shutdown(asio::ip::tcp::socket::shutdown_send, ignored);
                              self->Drain();
                          });
    }

    // Until the peer closes or the linger is over.
    void Drain()
    {
        m_Socket.async_read_some(asio::buffer(m_Buffer),
                                 [self = shared_from_this()](const std::error_code& ec, std::size_t)
                                 {
                                     if (ec)
                                         return self->Close();
                                     self->Drain();
                                 });
    }

    void Read()
    {
        m_Socket.async_read_some(asio::buffer(m_Buffer),
                                 [self = shared_from_this()](const std::error_code& ec, std::size_t n)
                                 {
                                     if (ec)
                                         return self->Close();
                                     self->Count(n);
                                     self->Read();
                                 });
    }

    void Count(std::size_t n)
    {
        std::error_code ec;
        const auto peer = m_Socket.remote_endpoint(ec);
        auto* pSession = ec ? nullptr : m_Service.FindSession(m_Cookie, peer.address());
        if (pSession == nullptr)
            return;
        const auto slot = static_cast<std::size_t>((ExtendedService::Clock::now() - pSession->m_UploadStart) /
                                                   ExtendedService::kBucket);
        if (slot < pSession->m_UploadBuckets.size())
            pSession->m_UploadBuckets[slot] += n;
    }

    void Write()
    {
        if (ExtendedService::Clock::now() >= m_End)
            return Close();
        asio::async_write(m_Socket, asio::buffer(m_Buffer),
                          [self = shared_from_this()](const std::error_code& ec, std::size_t)
                          {
                              if (ec)
                                  return self->Close();
                              self->Write();
                          });
    }

    ExtendedService& m_Service;
    asio::ip::tcp::socket m_Socket;
    asio::steady_timer m_Timer;
    std::vector<std::uint8_t> m_Buffer;
    extended::Bytes m_Busy;
    const std::uint32_t m_Source;
    bool m_bPending = true; // counted by Accept
    bool m_bAdmitted = false;
    int m_Direction = 0;
    std::uint64_t m_Cookie = 0;
    ExtendedService::Clock::time_point m_End;
};

namespace
{
CookieJar::Key StartingKey(const ServerOptions& options)
{
    if (options.m_CookieKeyFile.empty())
        return RandomCookieKey();
    std::string error;
    const auto key = ReadCookieKeyFile(options.m_CookieKeyFile, &error);
    if (!key)
        throw std::runtime_error(error);
    return *key;
}
} // namespace

ExtendedService::ExtendedService(asio::io_context& io, const ServerOptions& options, ServerMetrics& metrics)
    : m_Io(io), m_Options(options), m_Metrics(metrics), m_Admission(options.m_Extended),
      m_Cookies(StartingKey(options)), m_KeyBorn(Clock::now()), m_Socket(io), m_InboundSocket(io),
      m_Acceptor(io), m_SweepTimer(io), m_Buffer(kMaxDatagram), m_BusyReplies(4.0, 8.0),
      m_Random(std::random_device{}())
{
}

std::error_code ExtendedService::Listen(const asio::ip::address_v4& address, std::uint16_t port)
{
    std::error_code ec;
    const asio::ip::udp::endpoint udpEnd(address, port);
    m_Socket.open(udpEnd.protocol(), ec);
    if (!ec)
        m_Socket.bind(udpEnd, ec);
    if (!ec)
        m_Socket.non_blocking(true, ec);
    // The loop that reads the probes also feeds the streams: while it writes,
    // a crowd's probes wait here instead of being dropped. A smaller buffer
    // than asked for is no reason not to serve.
    std::error_code ignored;
    m_Socket.set_option(asio::socket_base::receive_buffer_size(kProbeBuffer), ignored);
    if (!ec)
        m_InboundSocket.open(udpEnd.protocol(), ec);
    if (!ec)
        m_InboundSocket.bind({address, 0}, ec);
    if (!ec)
        m_InboundSocket.non_blocking(true, ec);
    if (!ec)
        ec = OpenListening(m_Acceptor, {address, LocalPort()});
    if (!ec)
        m_Acceptor.non_blocking(true, ec);
    if (ec)
    {
        std::error_code ignored;
        m_Socket.close(ignored);
        m_InboundSocket.close(ignored);
        m_Acceptor.close(ignored);
        return ec;
    }
    Receive();
    Accept();
    Sweep();
    return {};
}

std::uint16_t ExtendedService::LocalPort() const
{
    std::error_code ec;
    return m_Socket.local_endpoint(ec).port();
}

ExtendedService::Session* ExtendedService::FindSession(std::uint64_t cookie, const asio::ip::address& peer)
{
    const auto it = m_Sessions.find(cookie);
    if (it == m_Sessions.end() || it->second.m_Peer.address() != peer)
        return nullptr;
    return &it->second;
}

std::uint64_t ExtendedService::UnixSeconds() const
{
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch())
            .count());
}

void ExtendedService::Receive()
{
    m_Socket.async_receive_from(asio::buffer(m_Buffer), m_Sender,
                                [this](const std::error_code& ec, std::size_t n)
                                {
                                    if (!m_Socket.is_open() || ec == asio::error::operation_aborted)
                                        return;
                                    if (!ec)
                                        OnDatagram(n);
                                    // Whatever else is queued is read now: with
                                    // a crowd's streams to feed, a turn of the
                                    // loop is long, and one datagram a turn
                                    // would leave probes to overflow the buffer.
                                    for (int i = 0; i < kDatagramsPerTurn; ++i)
                                    {
                                        std::error_code again;
                                        const std::size_t more =
                                            m_Socket.receive_from(asio::buffer(m_Buffer), m_Sender, 0, again);
                                        if (again)
                                            break;
                                        OnDatagram(more);
                                    }
                                    Receive();
                                });
}

void ExtendedService::OnDatagram(std::size_t n)
{
    const auto request = extended::Decode(m_Buffer.data(), n);
    if (!request || !m_Sender.address().is_v4())
        return;
    const auto now = Clock::now();
    if (request->type == Type::Hello)
        return OnHello(*request, now);
    // Everything else only from the address and port the cookie was issued to.
    auto it = m_Sessions.find(request->cookie);
    Session* pSession = nullptr;
    if (it != m_Sessions.end())
    {
        if (it->second.m_Peer != m_Sender)
        {
            ServerMetrics::Add(m_Metrics.m_ExtSessionsRefusedCookie);
            return;
        }
        pSession = &it->second;
    }
    else if (request->type == Type::Probe || request->type == Type::StatsRequest ||
             request->type == Type::InboundRequest)
        pSession = OpenSession(*request, now);
    if (pSession == nullptr)
        return;
    pSession->m_LastSeen = now;
    switch (request->type)
    {
    case Type::Probe:
        return OnProbe(*pSession, *request, n, now);
    case Type::StatsRequest:
    {
        std::uint64_t bytes = 0;
        for (std::size_t i = request->a / kBucket.count();
             i < request->b / kBucket.count() && i < pSession->m_UploadBuckets.size(); ++i)
            bytes += pSession->m_UploadBuckets[i];
        return Send(m_Socket, m_Sender,
                    extended::Encode(
                        {Type::Stats, request->cookie, pSession->m_Distinct, bytes, pSession->m_Duplicates}));
    }
    case Type::InboundRequest:
        return Send(m_InboundSocket, {m_Sender.address(), m_Options.m_PongPort},
                    extended::Encode({Type::Inbound, request->cookie, 0, request->a}));
    case Type::Bye:
        return EndSession(it);
    default:
        ServerMetrics::Add(m_Metrics.m_ExtSessionsRefusedCookie);
    }
}

void ExtendedService::OnHello(const Message& hello, Clock::time_point now)
{
    const std::uint32_t source = SourceOf(m_Sender.address());
    const auto verdict = m_Admission.Hello(source, now);
    if (verdict != ExtendedAdmission::Verdict::Admitted)
    {
        // Unanswered: a flood gets nothing back to reflect.
        ServerMetrics::Add(verdict == ExtendedAdmission::Verdict::SourceFull
                               ? m_Metrics.m_ExtHellosRefusedSource
                               : m_Metrics.m_ExtHellosRefusedGlobal);
        return;
    }
    // A player who could not open a session is told now, not after its probes.
    if (const auto room = m_Admission.CanOpenSession(source); room != ExtendedAdmission::Verdict::Admitted)
    {
        ServerMetrics::Add(room == ExtendedAdmission::Verdict::SourceFull
                               ? m_Metrics.m_ExtSessionsRefusedSource
                               : m_Metrics.m_ExtSessionsRefusedFull);
        return SendBusy(hello, extended::BusyReason::Sessions, hello.a, now);
    }
    const std::uint64_t cookie = m_Cookies.Issue(source, m_Sender.port(), UnixSeconds());
    Send(m_Socket, m_Sender, extended::Encode({Type::Welcome, cookie, 0, hello.a}));
}

ExtendedService::Session* ExtendedService::OpenSession(const Message& request, Clock::time_point now)
{
    const std::uint32_t source = SourceOf(m_Sender.address());
    if (!m_Cookies.Valid(request.cookie, source, m_Sender.port(), UnixSeconds()))
    {
        ServerMetrics::Add(m_Metrics.m_ExtSessionsRefusedCookie);
        return nullptr;
    }
    const auto verdict = m_Admission.OpenSession(source);
    if (verdict != ExtendedAdmission::Verdict::Admitted)
    {
        ServerMetrics::Add(verdict == ExtendedAdmission::Verdict::SourceFull
                               ? m_Metrics.m_ExtSessionsRefusedSource
                               : m_Metrics.m_ExtSessionsRefusedFull);
        SendBusy(request, extended::BusyReason::Sessions, 0, now);
        return nullptr;
    }
    ServerMetrics::Add(m_Metrics.m_ExtSessionsOpened);
    m_Metrics.m_ExtSessionsActive.fetch_add(1, std::memory_order_relaxed);
    Session& session = m_Sessions[request.cookie];
    session.m_Peer = m_Sender;
    session.m_Source = source;
    session.m_LastSeen = now;
    return &session;
}

void ExtendedService::SendBusy(const Message& request, extended::BusyReason reason, std::uint64_t nonce,
                               Clock::time_point now)
{
    if (!m_BusyReplies.Allow(SourceOf(m_Sender.address()), now))
        return;
    Send(m_Socket, m_Sender,
         extended::Encode(
             {Type::Busy, request.cookie, 0, kSessionsRetryMs, static_cast<std::uint64_t>(reason), nonce}));
}

void ExtendedService::EndSession(std::unordered_map<std::uint64_t, Session>::iterator it)
{
    m_Admission.CloseSession(it->second.m_Source);
    m_Metrics.m_ExtSessionsActive.fetch_sub(1, std::memory_order_relaxed);
    m_Sessions.erase(it);
}

void ExtendedService::OnProbe(Session& session, const Message& probe, std::size_t nSize,
                              Clock::time_point now)
{
    const auto& limits = m_Admission.Settings();
    if (!session.m_Echoes.Take(limits.m_EchoesPerSecond, limits.m_EchoBurst, now))
    {
        ServerMetrics::Add(m_Metrics.m_ExtEchoesRefusedRate);
        return;
    }
    ++m_Probes;
    if (probe.seq < kMaxCountedProbes)
    {
        if (session.m_Seen.size() <= probe.seq)
            session.m_Seen.resize(probe.seq + 1, false);
        if (session.m_Seen[probe.seq])
            ++session.m_Duplicates;
        else
        {
            session.m_Seen[probe.seq] = true;
            ++session.m_Distinct;
        }
    }
    // Counted first: a dropped echo is downstream loss, which the client
    // tells from upstream loss by these counts.
    if (m_Options.m_DropEvery > 0 && session.m_Distinct % m_Options.m_DropEvery == 0)
    {
        ++m_Dropped;
        return;
    }
    Message echo = probe;
    echo.type = Type::Echo;
    auto delay = std::chrono::milliseconds(m_Options.m_PongDelayMs);
    if (m_Options.m_JitterMs > 0)
        delay += std::chrono::milliseconds(m_Random() % (m_Options.m_JitterMs + 1));
    SendLater(m_Sender, extended::Encode(echo, nSize), delay);
}

void ExtendedService::SendLater(const asio::ip::udp::endpoint& to, extended::Bytes data,
                                std::chrono::milliseconds delay)
{
    if (delay.count() == 0)
        return Send(m_Socket, to, data);
    if (m_Delayed >= kMaxDelayed)
    {
        ++m_Dropped;
        return;
    }
    // Each echo has its own timer: with jitter their due times interleave.
    ++m_Delayed;
    auto timer = std::make_shared<asio::steady_timer>(m_Io, delay);
    std::erase_if(m_DelayTimers, [](const auto& weak) { return weak.expired(); });
    m_DelayTimers.push_back(timer);
    timer->async_wait(
        [this, timer, to, data = std::move(data)](const std::error_code& ec)
        {
            --m_Delayed;
            if (!ec && m_Socket.is_open())
                Send(m_Socket, to, data);
        });
}

void ExtendedService::Send(asio::ip::udp::socket& socket, const asio::ip::udp::endpoint& to,
                           const extended::Bytes& data)
{
    std::error_code ec;
    socket.send_to(asio::buffer(data), to, 0, ec);
    if (ec)
        ++m_Dropped;
    else
        ++m_Echoes;
}

void ExtendedService::Accept()
{
    m_Acceptor.async_accept(
        [this](const std::error_code& ec, asio::ip::tcp::socket socket)
        {
            if (!m_Acceptor.is_open() || ec == asio::error::operation_aborted)
                return;
            if (!ec)
                Admit(std::move(socket));
            // Every connection already queued is taken now: with a crowd's
            // streams to feed, a turn of the loop is long, and one accept a
            // turn would leave players connected but never served.
            for (int i = 0; i < kAcceptsPerTurn; ++i)
            {
                std::error_code again;
                asio::ip::tcp::socket next(m_Io);
                m_Acceptor.accept(next, again);
                if (again)
                    break;
                Admit(std::move(next));
            }
            Accept();
        });
}

void ExtendedService::Admit(asio::ip::tcp::socket socket)
{
    std::error_code peerError;
    const auto peer = socket.remote_endpoint(peerError);
    if (peerError)
        return;
    const std::uint32_t source = SourceOf(peer.address());
    if (m_Admission.OpenPending(source) != ExtendedAdmission::Verdict::Admitted)
    {
        ServerMetrics::Add(m_Metrics.m_ExtStreamsRefusedPending);
        return;
    }
    auto stream = std::make_shared<ExtendedStream>(*this, std::move(socket), source);
    std::erase_if(m_LiveStreams, [](const auto& weak) { return weak.expired(); });
    m_LiveStreams.push_back(stream);
    stream->Start();
}

void ExtendedService::Sweep()
{
    const auto now = Clock::now();
    for (auto it = m_Sessions.begin(); it != m_Sessions.end();)
    {
        const auto next = std::next(it);
        const Session& session = it->second;
        if (now - session.m_LastSeen > kSessionIdle && session.m_Streams[0] + session.m_Streams[1] == 0)
            EndSession(it);
        it = next;
    }
    // A shared key is the operator's to change: the file is read again and a
    // new key takes over, the old one still honoured for a window. A random
    // key of our own is replaced now and then the same way.
    if (!m_Options.m_CookieKeyFile.empty())
    {
        if (now - m_KeyBorn >= std::chrono::seconds(CookieJar::kWindowSeconds))
        {
            m_KeyBorn = now;
            std::string error;
            if (const auto key = ReadCookieKeyFile(m_Options.m_CookieKeyFile, &error))
                m_Cookies.Rotate(*key);
            else
                LogLine("rig_test_server: keeping the cookie key: " + error);
        }
    }
    else if (now - m_KeyBorn >= kRandomKeyLife)
    {
        m_KeyBorn = now;
        m_Cookies.Rotate(RandomCookieKey());
    }
    m_SweepTimer.expires_after(kSweepEvery);
    m_SweepTimer.async_wait(
        [this](const std::error_code& ec)
        {
            if (!ec && m_Socket.is_open())
                Sweep();
        });
}

void ExtendedService::Stop()
{
    std::error_code ignored;
    m_Socket.close(ignored);
    m_InboundSocket.close(ignored);
    m_Acceptor.close(ignored);
    m_SweepTimer.cancel();
    for (const auto& weak : m_LiveStreams)
        if (auto stream = weak.lock())
            stream->Close();
    for (const auto& weak : m_DelayTimers)
        if (auto timer = weak.lock())
            timer->cancel();
    LogLine("extended sessions=" + std::to_string(m_Metrics.m_ExtSessionsOpened.load()) +
            " probes=" + std::to_string(m_Probes) + " sent=" + std::to_string(m_Echoes) +
            " dropped=" + std::to_string(m_Dropped) +
            " refused=" + std::to_string(m_Metrics.m_ExtSessionsRefusedCookie.load()));
}
