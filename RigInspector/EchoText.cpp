#include "EchoText.h"

#include "share/common/Format.h"
#include "share/common/StringUtil.h"

EchoText::Bytes EchoText::FormatPing(int nSeq, int nTick)
{
    return ToBytes(zul::FormatString(u"ping %d %d", nSeq, nTick));
}

EchoText::Bytes EchoText::FormatPong(int nSeq, int nTick)
{
    return ToBytes(zul::FormatString(u"pong %d %d", nSeq, nTick));
}

EchoText::Bytes EchoText::ToBytes(const tstring& text)
{
    Bytes bytes;
    bytes.reserve(text.size() * 2);
    for (char16_t c : text)
    {
        bytes.push_back(static_cast<std::uint8_t>(c & 0xFF));
        bytes.push_back(static_cast<std::uint8_t>(c >> 8));
    }
    return bytes;
}

tstring EchoText::FromBytes(const void* pData, std::size_t nLength)
{
    const auto* bytes = static_cast<const std::uint8_t*>(pData);
    tstring text;
    text.reserve(nLength / 2);
    for (std::size_t i = 0; i + 1 < nLength; i += 2)
        text.push_back(static_cast<char16_t>(bytes[i] | (bytes[i + 1] << 8)));
    return text;
}

std::optional<EchoText::Fields> EchoText::Parse(const void* pData, std::size_t nLength, const char16_t* pWord)
{
    const std::vector<tstring> fields = zul::Tokenize(FromBytes(pData, nLength), u" \t\r\n");
    if (fields.size() != 3 || fields[0] != pWord)
        return std::nullopt;
    return Fields{zul::Wtoi(fields[1]), zul::Wtoi(fields[2])};
}
