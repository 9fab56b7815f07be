// One datagram on the server's echo port: the reply in each fault mode. A
// reply is never larger than its request, a normal pong carries the ping's
// numbers, and a malformed one is refused by the client's parser.
#include <cstdint>
#include <cstdlib>

#include "RigInspector/EchoText.h"
#include "tests/FuzzCheck.h"
#include "tools/rig_test_server/EchoReply.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize)
{
    const auto ping = EchoText::ParsePing(pData, nSize);
    for (const PongFault fault : {PongFault::None, PongFault::WrongWord, PongFault::NoTick})
    {
        const auto reply = EchoReply(pData, nSize, fault);
        if (!ping)
        {
            FUZZ_CHECK(!reply);
            continue;
        }
        if (!reply)
            continue;
        FUZZ_CHECK(reply->size() <= nSize);
        const auto pong = EchoText::ParsePong(reply->data(), reply->size());
        if (fault == PongFault::None)
            FUZZ_CHECK(pong && pong->m_Seq == ping->m_Seq && pong->m_Tick == ping->m_Tick);
        else
            FUZZ_CHECK(!pong);
    }
    return 0;
}
