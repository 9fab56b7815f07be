#pragma once
// The UDP echo test's worker: numbered pings from one socket, pongs expected
// on local port 20000; the check reads the counts and round trips once the
// thread has ended.
#include <atomic>
#include <cstdint>
#include <optional>
#include <vector>

#include "EchoText.h"
#include "share/common/TString.h"
#include "share/common/Thread.h"

class UdpChecker : public zul::Thread
{
public:
    static const tstring s_DefaultHost;

    explicit UdpChecker(const tstring& name);
    ~UdpChecker() override;

    void Stop() override { m_bRunning = false; }
    unsigned int Run() override;

    void Reset();
    /// Records one round trip; pingTime must be above 0.
    void AddPingTime(std::int32_t pingTime);
    /// The round trip a parsed pong counts for, or nothing when it is refused:
    /// seq must be one of the nSent pings, tick above 0, and the round trip
    /// (nNow - tick, in 32-bit tick arithmetic) above 0.
    static std::optional<std::int32_t> AcceptPong(const EchoText::Fields& pong, int nSent,
                                                  std::uint32_t nNow);
    /// Pings sent and not answered.
    int LossCount() const;
    int SentCount() const { return static_cast<int>(m_Answered.size()); }
    int AnsweredCount() const { return SentCount() - LossCount(); }

    // Configuration (before Start) and results (after Wait).
    std::atomic<bool> m_bRunning{false};
    tstring m_Host;
    std::uint16_t m_Port = 0;
    std::uint16_t m_LocalPort = 0;
    std::uint32_t m_Interval = 0;
    std::uint32_t m_Timeout = 0;
    std::uint16_t m_PingCount = 0;
    std::int32_t m_MinPing = -1;
    std::int32_t m_MaxPing = -1;
    std::uint32_t m_TotalPing = 0;
    std::vector<bool> m_Answered;
    /// Datagrams on the pong port that answered none of our pings, in all
    /// and by reason: not a pong at all (or too short to hold), a sequence
    /// number never sent, a tick or round trip of 0 or below.
    std::uint32_t m_IgnoredCount = 0;
    std::uint32_t m_MalformedCount = 0;
    std::uint32_t m_UnknownSequenceCount = 0;
    std::uint32_t m_BadRoundTripCount = 0;
    /// Valid pongs for a ping already answered; they count again.
    std::uint32_t m_DuplicateCount = 0;
    /// False when the pong socket could not take m_LocalPort.
    bool m_bPongPortBound = true;

private:
    bool AllAnswered() const;
    void CountRefused(const std::optional<EchoText::Fields>& fields);
};
