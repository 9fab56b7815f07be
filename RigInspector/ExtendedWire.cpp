#include "ExtendedWire.h"

#include <algorithm>

namespace extended
{
namespace
{
void Put(Bytes& out, std::size_t offset, std::uint64_t value, int nBytes)
{
    for (int i = 0; i < nBytes; ++i)
        out[offset + i] = static_cast<std::uint8_t>(value >> (8 * i));
}

std::uint64_t Get(const std::uint8_t* p, int nBytes)
{
    std::uint64_t value = 0;
    for (int i = nBytes - 1; i >= 0; --i)
        value = (value << 8) | p[i];
    return value;
}

bool KnownType(std::uint8_t type)
{
    return (type >= 1 && type <= 10) || type == 16 || type == 17;
}
} // namespace

Bytes Encode(const Message& m, std::size_t nSize)
{
    Bytes out(std::max(nSize, kMinMessage), 0);
    out[0] = 'R';
    out[1] = 'X';
    out[2] = kVersion;
    out[3] = static_cast<std::uint8_t>(m.type);
    Put(out, 4, m.cookie, 8);
    Put(out, 12, m.seq, 4);
    Put(out, 16, m.a, 8);
    Put(out, 24, m.b, 8);
    Put(out, 32, m.c, 8);
    return out;
}

std::optional<Message> Decode(const std::uint8_t* p, std::size_t nLength)
{
    if (nLength < kMinMessage || p[0] != 'R' || p[1] != 'X' || p[2] != kVersion || !KnownType(p[3]))
        return std::nullopt;
    Message m;
    m.type = static_cast<Type>(p[3]);
    m.cookie = Get(p + 4, 8);
    m.seq = static_cast<std::uint32_t>(Get(p + 12, 4));
    m.a = Get(p + 16, 8);
    m.b = Get(p + 24, 8);
    m.c = Get(p + 32, 8);
    return m;
}
} // namespace extended
