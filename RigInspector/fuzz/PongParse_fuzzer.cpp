// A datagram on the pong port, as the UDP checker takes it: parsed, then
// judged against the pings sent and the clock. The input's last bytes give
// the pings sent and the tick count; the rest is the datagram.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdlib>
#include <vector>

#include "RigInspector/EchoText.h"
#include "RigInspector/UdpChecker.h"
#include "tests/FuzzCheck.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize)
{
    FuzzedDataProvider input(pData, nSize);
    const int nSent = input.ConsumeIntegralInRange<int>(0, 0xFFFF);
    const auto nNow = input.ConsumeIntegral<std::uint32_t>();
    const std::vector<std::uint8_t> datagram = input.ConsumeRemainingBytes<std::uint8_t>();

    const auto pong = EchoText::ParsePong(datagram.data(), datagram.size());
    if (!pong)
        return 0;
    // The numbers survive the server's own formatting of them.
    const EchoText::Bytes canonical = EchoText::FormatPong(pong->m_Seq, pong->m_Tick);
    const auto again = EchoText::ParsePong(canonical.data(), canonical.size());
    FUZZ_CHECK(again && again->m_Seq == pong->m_Seq && again->m_Tick == pong->m_Tick);

    const auto rtt = UdpChecker::AcceptPong(*pong, nSent, nNow);
    if (!rtt)
        return 0;
    FUZZ_CHECK(pong->m_Seq >= 0 && pong->m_Seq < nSent && pong->m_Tick > 0 && *rtt > 0);
    FUZZ_CHECK(static_cast<std::uint32_t>(pong->m_Tick) + static_cast<std::uint32_t>(*rtt) == nNow);

    // What the worker does with an accepted pong must never break its assertion.
    static UdpChecker checker(u"UdpChecker");
    checker.Reset();
    checker.AddPingTime(*rtt);
    FUZZ_CHECK(checker.m_MinPing == *rtt && checker.m_MaxPing == *rtt);
    return 0;
}
