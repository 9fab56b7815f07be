#include "UdpChecker.h"

#include <algorithm>

#include "EchoText.h"
#include "share/common/Assert.h"
#include "share/common/Clock.h"
#include "share/socket/DatagramPool.h"
#include "share/socket/DatagramSocket.h"

namespace
{
/// Gives a received datagram back to the pool on every way out of the turn.
class PooledDatagram
{
public:
    explicit PooledDatagram(zul::socket::Datagram* pDatagram) : m_pDatagram(pDatagram) {}
    ~PooledDatagram()
    {
        if (m_pDatagram != nullptr)
            zul::socket::DatagramPool::GetInstance()->Release(m_pDatagram);
    }
    PooledDatagram(const PooledDatagram&) = delete;
    PooledDatagram& operator=(const PooledDatagram&) = delete;

    zul::socket::Datagram* operator->() const { return m_pDatagram; }
    explicit operator bool() const { return m_pDatagram != nullptr; }

private:
    zul::socket::Datagram* m_pDatagram;
};
} // namespace

const tstring UdpChecker::s_DefaultHost = u"127.0.0.1";

UdpChecker::UdpChecker(const tstring& name) : zul::Thread(name) {}

UdpChecker::~UdpChecker()
{
    // Run reads the fields until it returns: never let the base join a
    // thread that outlived them.
    Stop();
    Wait(zul::INFINITE_WAIT);
    m_Answered.clear();
    m_Answered.shrink_to_fit();
}

void UdpChecker::Reset()
{
    m_bRunning = false;
    m_Host = s_DefaultHost;
    m_Port = 9998;
    m_LocalPort = 20000;
    m_Interval = 50;
    m_Timeout = 5000;
    m_PingCount = 10;
    m_MinPing = -1;
    m_MaxPing = -1;
    m_TotalPing = 0;
    m_Answered.clear();
    m_IgnoredCount = 0;
    m_MalformedCount = 0;
    m_UnknownSequenceCount = 0;
    m_BadRoundTripCount = 0;
    m_DuplicateCount = 0;
    m_bPongPortBound = true;
}

void UdpChecker::AddPingTime(std::int32_t pingTime)
{
    ZUL_ASSERT(pingTime > 0);
    m_TotalPing += static_cast<std::uint32_t>(pingTime);
    if (m_MinPing < 0 || pingTime < m_MinPing)
        m_MinPing = pingTime;
    if (m_MaxPing < 0 || pingTime > m_MaxPing)
        m_MaxPing = pingTime;
}

std::optional<std::int32_t> UdpChecker::AcceptPong(const EchoText::Fields& pong, int nSent,
                                                   std::uint32_t nNow)
{
    // Unsigned difference, then signed: a tick from a clock past 2^31 reads
    // negative and is refused.
    const auto rtt = static_cast<std::int32_t>(nNow - static_cast<std::uint32_t>(pong.m_Tick));
    if (pong.m_Seq >= 0 && pong.m_Seq < nSent && pong.m_Tick > 0 && rtt > 0)
        return rtt;
    return std::nullopt;
}

int UdpChecker::LossCount() const
{
    return static_cast<int>(std::count(m_Answered.begin(), m_Answered.end(), false));
}

bool UdpChecker::AllAnswered() const
{
    return std::find(m_Answered.begin(), m_Answered.end(), false) == m_Answered.end();
}

void UdpChecker::CountRefused(const std::optional<EchoText::Fields>& fields)
{
    ++m_IgnoredCount;
    if (!fields)
        ++m_MalformedCount;
    else if (fields->m_Seq < 0 || fields->m_Seq >= SentCount())
        ++m_UnknownSequenceCount;
    else
        ++m_BadRoundTripCount;
}

// A socket that cannot be made fails the DatagramSocket constructor's
// assertion here, on the worker; the exception ends Run and the check reports
// it (see DescribeWorkerFailure). A datagram too short to be held (under 8
// bytes) never leaves ReceiveFrom; it is counted with the junk.
unsigned int UdpChecker::Run()
{
    m_bRunning = true;
    zul::socket::DatagramSocket pingSocket(0, false);
    zul::socket::DatagramSocket pongSocket(m_LocalPort, false);
    m_bPongPortBound = pongSocket.GetLastError() == 0;
    if (!pingSocket.SetNonBlocking() || !pongSocket.SetNonBlocking())
        return 0;

    const std::uint32_t start = zul::GetTickCount();
    if (!m_bRunning)
        return 0;
    for (;;)
    {
        if (m_Answered.size() == m_PingCount && AllAnswered())
            break;
        if (zul::GetTickCount() - start > m_Timeout)
            break;
        if (m_Answered.size() < m_PingCount)
        {
            zul::socket::Datagram ping;
            ping.SetHost(m_Host);
            ping.SetPort(m_Port);
            const auto bytes = EchoText::FormatPing(static_cast<int>(m_Answered.size()),
                                                    static_cast<std::int32_t>(zul::GetTickCount()));
            ping.SetData(bytes.data(), static_cast<std::uint16_t>(bytes.size()));
            if (pingSocket.SendTo(&ping) > 0)
                m_Answered.push_back(false);
        }
        // One datagram a turn, no more: the turn's pause is what keeps the
        // worker from spinning. Junk on the port is counted, so that a run
        // whose pongs were lost behind it can say so instead of only blaming
        // blocked ports (in the diagnostics; the report stays as it was).
        bool bTaken = false;
        if (const PooledDatagram pong{pongSocket.ReceiveFrom(bTaken)})
        {
            const auto fields = EchoText::ParsePong(pong->GetBuffer(), pong->GetLength());
            if (const auto rtt =
                    fields ? AcceptPong(*fields, SentCount(), zul::GetTickCount()) : std::nullopt)
            {
                const auto seq = static_cast<std::size_t>(fields->m_Seq);
                if (m_Answered[seq])
                    ++m_DuplicateCount;
                m_Answered[seq] = true;
                AddPingTime(*rtt);
            }
            else
            {
                CountRefused(fields);
            }
        }
        else if (bTaken)
        {
            CountRefused(std::nullopt); // shorter than a datagram can hold
        }
        zul::Sleep(m_Interval);
        if (!m_bRunning)
            break;
    }
    return 0;
}
