#include "EchoReply.h"

std::optional<EchoText::Bytes> PongFor(const EchoText::Fields& ping, const std::uint8_t* pRequest,
                                       std::size_t nRequest, PongFault fault)
{
    EchoText::Bytes pong = EchoText::FormatPong(ping.m_Seq, ping.m_Tick);
    if (fault == PongFault::WrongWord)
    {
        // A ping's bytes open with "ping", so byte 2 is the 'i'.
        pong.assign(pRequest, pRequest + nRequest);
        pong[2] = 'a';
    }
    else if (fault == PongFault::NoTick)
    {
        const tstring text = EchoText::FromBytes(pong.data(), pong.size());
        pong = EchoText::ToBytes(text.substr(0, text.rfind(u' ')));
    }
    if (pong.size() > nRequest)
        return std::nullopt;
    return pong;
}

std::optional<EchoText::Bytes> EchoReply(const std::uint8_t* pRequest, std::size_t nRequest, PongFault fault)
{
    const auto ping = EchoText::ParsePing(pRequest, nRequest);
    if (!ping)
        return std::nullopt;
    return PongFor(*ping, pRequest, nRequest, fault);
}
