// One datagram on the server's echo port: the reply in each fault mode. The
// server's allocation-free reader agrees with the client's parser, a reply is
// never larger than its request, a normal pong carries the ping's numbers,
// and a malformed one is refused by the client's parser.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "RigInspector/EchoText.h"
#include "tests/FuzzCheck.h"
#include "tools/rig_test_server/EchoReply.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize)
{
    const auto ping = EchoText::ParsePing(pData, nSize);
    const auto read = ReadPing(pData, nSize);
    if (nSize <= kMaxPingBytes)
        FUZZ_CHECK(ping.has_value() == read.has_value() &&
                   (!ping || (ping->m_Seq == read->m_Seq && ping->m_Tick == read->m_Tick)));
    else
        FUZZ_CHECK(!read);
    std::vector<std::uint8_t> reply(nSize + 1);
    for (const PongFault fault : {PongFault::None, PongFault::WrongWord, PongFault::NoTick})
    {
        const std::size_t n = EchoReply(pData, nSize, fault, reply.data());
        if (!read)
        {
            FUZZ_CHECK(n == 0);
            continue;
        }
        if (n == 0)
            continue;
        FUZZ_CHECK(n <= nSize);
        const auto pong = EchoText::ParsePong(reply.data(), n);
        if (fault == PongFault::None)
            FUZZ_CHECK(pong && pong->m_Seq == read->m_Seq && pong->m_Tick == read->m_Tick &&
                       EchoText::FormatPong(read->m_Seq, read->m_Tick) ==
                           std::vector<std::uint8_t>(reply.begin(), reply.begin() + static_cast<long>(n)));
        else
            FUZZ_CHECK(!pong);
    }
    return 0;
}
