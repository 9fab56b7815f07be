#include "UdpEchoService.h"

#include <string>

#include "EchoReply.h"
#include "RigInspector/EchoText.h"

namespace
{
using Clock = std::chrono::steady_clock;

// The largest datagram UDP carries, so nothing arrives cut short and a long
// datagram is judged on all of its bytes.
constexpr std::size_t kMaxDatagram = 65536;
// Bounds the memory of delayed pongs under a flood; beyond it pongs are lost,
// as UDP may lose them anyway.
constexpr std::size_t kMaxDelayed = 4096;
} // namespace

UdpEchoService::UdpEchoService(asio::io_context& io, const ServerOptions& options)
    : m_Options(options), m_Socket(io), m_DelayTimer(io), m_Buffer(kMaxDatagram),
      m_Limiter(options.m_RateLimit, options.m_RateBurst)
{
}

std::error_code UdpEchoService::Listen(const asio::ip::udp::endpoint& endpoint)
{
    std::error_code ec;
    m_Socket.open(endpoint.protocol(), ec);
    if (!ec)
        m_Socket.bind(endpoint, ec);
    // Pongs are sent without waiting: one that cannot go at once is dropped
    // rather than holding up every other client.
    if (!ec)
        m_Socket.non_blocking(true, ec);
    if (ec)
    {
        std::error_code ignored;
        m_Socket.close(ignored);
        return ec;
    }
    Receive();
    return {};
}

asio::ip::udp::endpoint UdpEchoService::LocalEndpoint() const
{
    std::error_code ec;
    return m_Socket.local_endpoint(ec);
}

void UdpEchoService::Receive()
{
    m_Socket.async_receive_from(asio::buffer(m_Buffer), m_Sender,
                                [this](const std::error_code& ec, std::size_t n) { OnReceive(ec, n); });
}

void UdpEchoService::OnReceive(const std::error_code& ec, std::size_t n)
{
    if (!m_Socket.is_open() || ec == asio::error::operation_aborted)
        return;
    // Other errors on an unconnected datagram socket concern one datagram
    // (an ICMP report, a truncation); the next one is unaffected.
    if (!ec)
        Answer(n);
    Receive();
}

void UdpEchoService::Answer(std::size_t nRequest)
{
    const auto ping = EchoText::ParsePing(m_Buffer.data(), nRequest);
    if (!ping || !m_Sender.address().is_v4())
    {
        ++m_Ignored;
        return;
    }
    ++m_Pings;
    if (!m_Limiter.Allow(m_Sender.address().to_v4().to_uint(), Clock::now()))
    {
        ++m_Limited;
        return;
    }
    ++m_Admitted;
    if (m_Options.m_DropEvery > 0 && m_Admitted % m_Options.m_DropEvery == 0)
    {
        ++m_Dropped;
        return;
    }
    // Faults take turns: the odd admitted pings get the wrong word.
    const PongFault fault = !m_Options.m_bMalformedPongs ? PongFault::None
                            : m_Admitted % 2 == 1        ? PongFault::WrongWord
                                                         : PongFault::NoTick;
    auto pong = PongFor(*ping, m_Buffer.data(), nRequest, fault);
    if (!pong)
    {
        ++m_Ignored;
        return;
    }
    const asio::ip::udp::endpoint to(m_Sender.address(), m_Options.m_PongPort);
    if (m_Options.m_PongDelayMs == 0)
        return Send(to, *pong);
    if (m_Delayed.size() >= kMaxDelayed)
    {
        ++m_Dropped;
        return;
    }
    const bool bWasEmpty = m_Delayed.empty();
    m_Delayed.push_back(
        {Clock::now() + std::chrono::milliseconds(m_Options.m_PongDelayMs), to, std::move(*pong)});
    if (bWasEmpty)
        ArmDelayTimer();
}

void UdpEchoService::Send(const asio::ip::udp::endpoint& to, const Bytes& data)
{
    std::error_code ec;
    m_Socket.send_to(asio::buffer(data), to, 0, ec);
    if (ec)
        ++m_Dropped;
    else
        ++m_Pongs;
}

void UdpEchoService::ArmDelayTimer()
{
    // Every pong waits the same time, so the queue is in due order.
    m_DelayTimer.expires_at(m_Delayed.front().m_Due);
    m_DelayTimer.async_wait([this](const std::error_code& ec) { OnDelayTimer(ec); });
}

void UdpEchoService::OnDelayTimer(const std::error_code& ec)
{
    if (ec == asio::error::operation_aborted || !m_Socket.is_open())
        return;
    const auto now = Clock::now();
    while (!m_Delayed.empty() && m_Delayed.front().m_Due <= now)
    {
        Send(m_Delayed.front().m_To, m_Delayed.front().m_Data);
        m_Delayed.pop_front();
    }
    if (!m_Delayed.empty())
        ArmDelayTimer();
}

void UdpEchoService::Stop()
{
    std::error_code ignored;
    m_Socket.close(ignored);
    m_DelayTimer.cancel();
    m_Delayed.clear();
    LogLine("udp pings=" + std::to_string(m_Pings) + " pongs=" + std::to_string(m_Pongs) +
            " ignored=" + std::to_string(m_Ignored) + " limited=" + std::to_string(m_Limited) +
            " dropped=" + std::to_string(m_Dropped));
}
