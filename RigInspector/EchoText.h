#pragma once
// The UDP echo test's datagram text, shared by the checker and the test
// server so that both sides read a datagram the same way.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "share/common/TString.h"

/// Pings ("ping <seq> <tick>") and pongs ("pong <seq> <tick>") as UTF-16LE
/// bytes with no header and no terminator.
class EchoText
{
public:
    using Bytes = std::vector<std::uint8_t>;

    /// The two numbers of an accepted datagram, as read; range checks (seq
    /// below the pings sent, tick and round trip above 0) are the caller's.
    struct Fields
    {
        int m_Seq = 0;
        int m_Tick = 0;
    };

    static Bytes FormatPing(int nSeq, int nTick);
    static Bytes FormatPong(int nSeq, int nTick);

    /// 16-bit characters, little-endian, 2 bytes each.
    static Bytes ToBytes(const tstring& text);

    /// nLength / 2 little-endian characters (an odd last byte is ignored).
    static tstring FromBytes(const void* pData, std::size_t nLength);

    /// Accepts exactly three fields split at space, tab, CR or LF (empty
    /// fields count), the first equal to pWord; the numbers are read as _wtoi
    /// reads them, so "+7", " 7" or "7x" all give 7.
    static std::optional<Fields> Parse(const void* pData, std::size_t nLength, const char16_t* pWord);
    static std::optional<Fields> ParsePing(const void* pData, std::size_t nLength)
    {
        return Parse(pData, nLength, u"ping");
    }
    static std::optional<Fields> ParsePong(const void* pData, std::size_t nLength)
    {
        return Parse(pData, nLength, u"pong");
    }
};
