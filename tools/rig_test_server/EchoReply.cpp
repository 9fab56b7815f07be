#include "EchoReply.h"

#include <algorithm>
#include <charconv>
#include <string_view>

#include "share/common/TString.h"

namespace
{
bool IsSeparator(char16_t c)
{
    return c == u' ' || c == u'\t' || c == u'\r' || c == u'\n';
}

/// Appends text as UTF-16LE; the new end.
std::uint8_t* Put(std::uint8_t* pOut, std::string_view text)
{
    for (const char c : text)
    {
        *pOut++ = static_cast<std::uint8_t>(c);
        *pOut++ = 0;
    }
    return pOut;
}

std::uint8_t* PutNumber(std::uint8_t* pOut, int value)
{
    char digits[16];
    const auto result = std::to_chars(digits, digits + sizeof digits, value);
    return Put(pOut, std::string_view(digits, static_cast<std::size_t>(result.ptr - digits)));
}
} // namespace

std::optional<EchoText::Fields> ReadPing(const std::uint8_t* pRequest, std::size_t nRequest)
{
    if (nRequest > kMaxPingBytes)
        return std::nullopt;
    char16_t text[kMaxPingBytes / 2];
    const std::size_t length = nRequest / 2;
    std::size_t separators[2];
    std::size_t found = 0;
    for (std::size_t i = 0; i < length; ++i)
    {
        text[i] = static_cast<char16_t>(pRequest[2 * i] | (pRequest[2 * i + 1] << 8));
        if (IsSeparator(text[i]))
        {
            if (found == 2)
                return std::nullopt; // a fourth field
            separators[found++] = i;
        }
    }
    const std::u16string_view all(text, length);
    if (found != 2 || all.substr(0, separators[0]) != u"ping")
        return std::nullopt;
    return EchoText::Fields{zul::Wtoi(all.substr(separators[0] + 1, separators[1] - separators[0] - 1)),
                            zul::Wtoi(all.substr(separators[1] + 1))};
}

std::size_t WritePong(const EchoText::Fields& ping, const std::uint8_t* pRequest, std::size_t nRequest,
                      PongFault fault, std::uint8_t* pPong)
{
    if (fault == PongFault::WrongWord)
    {
        // A ping's bytes open with "ping", so byte 2 is the 'i'.
        std::copy(pRequest, pRequest + nRequest, pPong);
        pPong[2] = 'a';
        return nRequest;
    }
    // The longest pong, "pong -2147483648 -2147483648", is 56 bytes; it is
    // written aside and copied only when it fits.
    std::uint8_t pong[64];
    std::uint8_t* end = PutNumber(Put(pong, "pong "), ping.m_Seq);
    if (fault != PongFault::NoTick)
        end = PutNumber(Put(end, " "), ping.m_Tick);
    const auto size = static_cast<std::size_t>(end - pong);
    if (size > nRequest)
        return 0;
    std::copy(pong, end, pPong);
    return size;
}

std::size_t EchoReply(const std::uint8_t* pRequest, std::size_t nRequest, PongFault fault,
                      std::uint8_t* pPong)
{
    const auto ping = ReadPing(pRequest, nRequest);
    return ping ? WritePong(*ping, pRequest, nRequest, fault, pPong) : 0;
}
