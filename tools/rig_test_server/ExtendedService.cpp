#include "ExtendedService.h"

#include "Listening.h"

#include <asio/read.hpp>
#include <asio/steady_timer.hpp>
#include <asio/write.hpp>
#include <memory>
#include <string>

using extended::Message;
using extended::Type;

namespace
{
constexpr std::size_t kMaxDatagram = 65536;
constexpr std::size_t kMaxSessions = 1024;
constexpr auto kSessionIdle = std::chrono::seconds(60);
// A hello from a forged source is never followed up; its session goes soon,
// so a flood of them cannot keep real clients out for long.
constexpr auto kUnusedSessionIdle = std::chrono::seconds(2);
// A client sends about 500 probes a run; more are echoed but not counted.
constexpr std::uint32_t kMaxCountedProbes = 8192;
constexpr std::size_t kMaxDelayed = 4096;
constexpr std::size_t kMaxStreams = 64;
constexpr std::size_t kStreamChunk = 64 * 1024;
// A stream that outlives its duration by this much is cut, whatever the peer does.
constexpr auto kStreamGrace = std::chrono::seconds(2);
} // namespace

// One TCP stream of a throughput phase: a header record, then bytes one way
// until its duration is over.
class ExtendedStream : public std::enable_shared_from_this<ExtendedStream>
{
public:
    ExtendedStream(ExtendedService& service, asio::ip::tcp::socket socket)
        : m_Service(service), m_Socket(std::move(socket)), m_Timer(service.m_Io), m_Buffer(kStreamChunk)
    {
        ++m_Service.m_Streams;
    }
    ~ExtendedStream() { --m_Service.m_Streams; }

    void Start()
    {
        // A peer that never sends its header holds a slot only this long.
        Arm(std::chrono::milliseconds(ExtendedService::kMaxStreamMs) + kStreamGrace);
        asio::async_read(m_Socket, asio::buffer(m_Buffer.data(), extended::kMinMessage),
                         [self = shared_from_this()](const std::error_code& ec, std::size_t n)
                         {
                             if (!ec)
                                 self->OnHeader(n);
                             else
                                 self->Close();
                         });
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

private:
    void OnHeader(std::size_t n)
    {
        std::error_code ec;
        const auto peer = m_Socket.remote_endpoint(ec);
        const auto header = extended::Decode(m_Buffer.data(), n);
        if (ec || !header || (header->type != Type::Upload && header->type != Type::Download) ||
            !m_Service.FindSession(header->cookie, peer.address()))
        {
            ++m_Service.m_Refused;
            return Close();
        }
        m_Cookie = header->cookie;
        m_End = ExtendedService::Clock::now() +
                std::chrono::milliseconds(std::min<std::uint64_t>(header->a, ExtendedService::kMaxStreamMs));
        m_Timer.cancel();
        Arm(m_End - ExtendedService::Clock::now() + kStreamGrace);
        if (header->type == Type::Download)
            return Write();
        auto* pSession = m_Service.FindSession(m_Cookie, peer.address());
        if (!pSession->m_bUploadStarted)
        {
            pSession->m_bUploadStarted = true;
            pSession->m_UploadStart = ExtendedService::Clock::now();
            pSession->m_UploadBuckets.assign(ExtendedService::kMaxStreamMs / ExtendedService::kBucket.count(),
                                             0);
        }
        Read();
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

public:
    void Close()
    {
        std::error_code ignored;
        m_Timer.cancel();
        m_Socket.close(ignored);
    }

    ExtendedService& m_Service;
    asio::ip::tcp::socket m_Socket;
    asio::steady_timer m_Timer;
    std::vector<std::uint8_t> m_Buffer;
    std::uint64_t m_Cookie = 0;
    ExtendedService::Clock::time_point m_End;
};

ExtendedService::ExtendedService(asio::io_context& io, const ServerOptions& options)
    : m_Io(io), m_Options(options), m_Socket(io), m_InboundSocket(io), m_Acceptor(io), m_Buffer(kMaxDatagram),
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
    if (!ec)
        m_InboundSocket.open(udpEnd.protocol(), ec);
    if (!ec)
        m_InboundSocket.bind({address, 0}, ec);
    if (!ec)
        m_InboundSocket.non_blocking(true, ec);
    if (!ec)
        ec = OpenListening(m_Acceptor, {address, LocalPort()});
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

void ExtendedService::Receive()
{
    m_Socket.async_receive_from(asio::buffer(m_Buffer), m_Sender,
                                [this](const std::error_code& ec, std::size_t n)
                                {
                                    if (!m_Socket.is_open() || ec == asio::error::operation_aborted)
                                        return;
                                    if (!ec)
                                        OnDatagram(n);
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
    {
        ForgetIdleSessions(now);
        if (m_Sessions.size() >= kMaxSessions)
            return;
        std::uint64_t cookie = 0;
        while (cookie == 0 || m_Sessions.count(cookie) != 0)
            cookie = m_Random();
        Session& session = m_Sessions[cookie];
        session.m_Peer = m_Sender;
        session.m_LastSeen = now;
        ++m_Handshakes;
        return Send(m_Socket, m_Sender, extended::Encode({Type::Welcome, cookie, 0, request->a}));
    }
    // Everything else only from the address and port that completed the handshake.
    const auto it = m_Sessions.find(request->cookie);
    if (it == m_Sessions.end() || it->second.m_Peer != m_Sender)
    {
        ++m_Refused;
        return;
    }
    Session& session = it->second;
    session.m_LastSeen = now;
    session.m_bUsed = true;
    switch (request->type)
    {
    case Type::Probe:
        return OnProbe(session, *request, n);
    case Type::StatsRequest:
    {
        std::uint64_t bytes = 0;
        for (std::size_t i = request->a / kBucket.count();
             i < request->b / kBucket.count() && i < session.m_UploadBuckets.size(); ++i)
            bytes += session.m_UploadBuckets[i];
        return Send(m_Socket, m_Sender,
                    extended::Encode(
                        {Type::Stats, request->cookie, session.m_Distinct, bytes, session.m_Duplicates}));
    }
    case Type::InboundRequest:
        return Send(m_InboundSocket, {m_Sender.address(), m_Options.m_PongPort},
                    extended::Encode({Type::Inbound, request->cookie, 0, request->a}));
    default:
        ++m_Refused;
    }
}

void ExtendedService::OnProbe(Session& session, const Message& probe, std::size_t nSize)
{
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
            if (!ec && m_Streams < kMaxStreams)
            {
                auto stream = std::make_shared<ExtendedStream>(*this, std::move(socket));
                std::erase_if(m_LiveStreams, [](const auto& weak) { return weak.expired(); });
                m_LiveStreams.push_back(stream);
                stream->Start();
            }
            Accept();
        });
}

void ExtendedService::ForgetIdleSessions(Clock::time_point now)
{
    std::erase_if(m_Sessions,
                  [now](const auto& entry)
                  {
                      const auto idle = now - entry.second.m_LastSeen;
                      return idle > kSessionIdle || (!entry.second.m_bUsed && idle > kUnusedSessionIdle);
                  });
}

void ExtendedService::Stop()
{
    std::error_code ignored;
    m_Socket.close(ignored);
    m_InboundSocket.close(ignored);
    m_Acceptor.close(ignored);
    for (const auto& weak : m_LiveStreams)
        if (auto stream = weak.lock())
            stream->Close();
    for (const auto& weak : m_DelayTimers)
        if (auto timer = weak.lock())
            timer->cancel();
    LogLine("extended sessions=" + std::to_string(m_Handshakes) + " probes=" + std::to_string(m_Probes) +
            " sent=" + std::to_string(m_Echoes) + " dropped=" + std::to_string(m_Dropped) +
            " refused=" + std::to_string(m_Refused));
}
