#include "UdpEchoService.h"

#include <algorithm>
#include <asio/post.hpp>
#include <cerrno>

#include "EchoReply.h"

namespace
{
constexpr std::size_t kMaxDelayed = 4096;
// Rounds of one batch before other work on the thread (timers, TCP) gets a
// turn; the rest of a flood waits in the socket's buffer.
constexpr int kRoundsPerTurn = 16;

// The checker counts whole milliseconds and refuses a round trip of 0 ms. A
// pong sent back within the millisecond its ping was written in would read
// as one, so a sender on this machine, where that happens, gets its pong no
// sooner than 1 ms after its ping came in. Remote senders are never that
// fast, and their pongs are never held.
constexpr std::chrono::milliseconds kLocalPongDelay{1};
constexpr std::chrono::microseconds kTimerSlack{500};

/// A sender on this machine: loopback, or a datagram from one of our own
/// addresses to itself.
bool IsLocal(const Datagram& ping)
{
    return (ping.m_Address >> 24) == 127 || ping.m_Address == ping.m_Destination;
}
} // namespace

UdpEchoService::UdpEchoService(asio::io_context& io, const ServerOptions& options, PongAdmission& admission,
                               ServerMetrics& metrics)
    : m_Options(options), m_Admission(admission), m_Metrics(metrics), m_Socket(io), m_DelayTimer(io),
      m_In(kBatch), m_Out(kBatch), m_Delayed(kMaxDelayed)
{
}

std::error_code UdpEchoService::Listen(const asio::ip::udp::endpoint& endpoint, bool bShared)
{
    std::error_code ec;
    m_Socket.open(endpoint.protocol(), ec);
    if (!ec && bShared)
    {
        if (!SharePort(m_Socket.native_handle()))
            ec = std::error_code(errno, std::system_category());
    }
    if (!ec && !EnableDestination(m_Socket.native_handle()))
        ec = std::error_code(errno, std::system_category());
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
    Wait();
    return {};
}

asio::ip::udp::endpoint UdpEchoService::LocalEndpoint() const
{
    std::error_code ec;
    return m_Socket.local_endpoint(ec);
}

void UdpEchoService::Wait()
{
    m_Socket.async_wait(asio::socket_base::wait_read,
                        [this](const std::error_code& ec)
                        {
                            if (!ec && m_Socket.is_open())
                                OnReadable();
                        });
}

void UdpEchoService::OnReadable()
{
    for (int round = 0; round < kRoundsPerTurn; ++round)
    {
        const int n = ReceiveDatagrams(m_Socket.native_handle(), m_In.data(), kBatch);
        // Other errors on an unconnected datagram socket concern one datagram
        // (an ICMP report); the next one is unaffected.
        if (n == 0)
            return Wait();
        if (n > 0)
            Answer(n, Clock::now());
    }
    asio::post(m_Socket.get_executor(),
               [this]
               {
                   if (m_Socket.is_open())
                       OnReadable();
               });
}

void UdpEchoService::Answer(int nReceived, Clock::time_point now)
{
    // Under a flood the held pongs go out from here, between receives, and
    // the timer is left for the last ones: re-armed for every few pongs it
    // cost more than the pongs themselves.
    SendDue(now);
    EchoText::Fields pings[kBatch];
    std::uint32_t sources[kBatch] = {};
    int index[kBatch];
    int nPings = 0;
    for (int i = 0; i < nReceived; ++i)
    {
        const Datagram& in = m_In[static_cast<std::size_t>(i)];
        const auto ping =
            in.m_bTruncated || in.m_Address == 0 ? std::nullopt : ReadPing(in.m_Data.data(), in.m_Size);
        if (!ping)
            continue;
        pings[nPings] = *ping;
        sources[nPings] = in.m_Address;
        index[nPings++] = i;
    }
    PongAdmission::Verdict verdicts[kBatch] = {};
    m_Admission.Decide(sources, verdicts, static_cast<std::size_t>(nPings), now);

    std::uint64_t ignored = static_cast<std::uint64_t>(nReceived - nPings);
    std::uint64_t limitedSource = 0, limitedGlobal = 0, dropped = 0;
    int nOut = 0;
    bool bWasEmpty = m_DelayedCount == 0;
    for (int k = 0; k < nPings; ++k)
    {
        if (verdicts[k] != PongAdmission::Verdict::Allowed)
        {
            ++(verdicts[k] == PongAdmission::Verdict::SourceLimited ? limitedSource : limitedGlobal);
            continue;
        }
        ++m_Admitted;
        if (m_Options.m_DropEvery > 0 && m_Admitted % m_Options.m_DropEvery == 0)
        {
            ++dropped;
            continue;
        }
        // Faults take turns: the odd admitted pings get the wrong word.
        const PongFault fault = !m_Options.m_bMalformedPongs ? PongFault::None
                                : m_Admitted % 2 == 1        ? PongFault::WrongWord
                                                             : PongFault::NoTick;
        const Datagram& in = m_In[static_cast<std::size_t>(index[k])];
        const bool bLocal = IsLocal(in);
        const auto delay = std::chrono::milliseconds(m_Options.m_PongDelayMs);
        const bool bHeld = delay.count() > 0 || bLocal;
        if (bHeld && m_DelayedCount == kMaxDelayed)
        {
            ++dropped;
            continue;
        }
        DelayedPong* held = bHeld ? &m_Delayed[(m_DelayedHead + m_DelayedCount) % kMaxDelayed] : nullptr;
        Datagram& out = held ? held->m_Pong : m_Out[static_cast<std::size_t>(nOut)];
        out.m_Size = static_cast<std::uint16_t>(
            WritePong(pings[k], in.m_Data.data(), in.m_Size, fault, out.m_Data.data()));
        if (out.m_Size == 0)
        {
            ++ignored;
            continue;
        }
        out.m_Address = in.m_Address;
        out.m_Port = m_Options.m_PongPort;
        if (!held)
        {
            ++nOut;
            continue;
        }
        held->m_Due = now + (bLocal ? std::max(delay, kLocalPongDelay) : delay);
        ++m_DelayedCount;
    }
    ServerMetrics::Add(m_Metrics.m_Pings, static_cast<std::uint64_t>(nPings));
    ServerMetrics::Add(m_Metrics.m_Ignored, ignored);
    ServerMetrics::Add(m_Metrics.m_LimitedSource, limitedSource);
    ServerMetrics::Add(m_Metrics.m_LimitedGlobal, limitedGlobal);
    ServerMetrics::Add(m_Metrics.m_Dropped, dropped);
    SendOut(nOut);
    if (bWasEmpty && m_DelayedCount > 0)
        ArmDelayTimer();
}

void UdpEchoService::SendOut(int nCount)
{
    std::uint64_t sent = 0, dropped = 0;
    for (int first = 0; first < nCount;)
    {
        const int n = SendDatagrams(m_Socket.native_handle(), m_Out.data() + first, nCount - first);
        if (n > 0)
        {
            sent += static_cast<std::uint64_t>(n);
            first += n;
        }
        else
        {
            ++dropped; // the first one cannot go; the rest may
            ++first;
        }
    }
    ServerMetrics::Add(m_Metrics.m_PongsSent, sent);
    ServerMetrics::Add(m_Metrics.m_Dropped, dropped);
}

void UdpEchoService::ArmDelayTimer(Clock::time_point notBefore)
{
    m_DelayTimer.expires_at(std::max(m_Delayed[m_DelayedHead].m_Due, notBefore));
    m_DelayTimer.async_wait([this](const std::error_code& ec) { OnDelayTimer(ec); });
}

void UdpEchoService::OnDelayTimer(const std::error_code& ec)
{
    if (ec == asio::error::operation_aborted || !m_Socket.is_open())
        return;
    const auto now = Clock::now();
    SendDue(now);
    // Pongs still held mean pings are still coming, and the receives send
    // them on time; the timer only has to catch the end of the flow, so it
    // need not chase every pong a few microseconds apart.
    if (m_DelayedCount > 0)
        ArmDelayTimer(now + kTimerSlack);
}

void UdpEchoService::SendDue(Clock::time_point now)
{
    while (m_DelayedCount > 0 && m_Delayed[m_DelayedHead].m_Due <= now)
    {
        int n = 0;
        for (; n < kBatch && m_DelayedCount > 0 && m_Delayed[m_DelayedHead].m_Due <= now; ++n)
        {
            m_Out[static_cast<std::size_t>(n)] = m_Delayed[m_DelayedHead].m_Pong;
            m_DelayedHead = (m_DelayedHead + 1) % kMaxDelayed;
            --m_DelayedCount;
        }
        SendOut(n);
    }
}

void UdpEchoService::Stop()
{
    std::error_code ignored;
    m_Socket.close(ignored);
    m_DelayTimer.cancel();
    m_DelayedCount = 0;
}
