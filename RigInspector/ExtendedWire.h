#pragma once
// The extended network-quality exchange between the checker and
// rig_test_server (protocol version 1). Every message is one fixed-layout
// record, little-endian, padded to at least kMinMessage bytes:
//
//   0  'R' 'X'        magic
//   2  u8 version     1
//   3  u8 type        ExtendedType
//   4  u64 cookie     0 in a Hello; the server's session cookie in all else
//  12  u32 seq        probe sequence number (probes and echoes)
//  16  u64 a          per type: nonce, send time, byte counts
//  24  u64 b
//  32  u64 c
//  40  zero padding up to the message size
//
// UDP replies are never longer than the request they answer, and the server
// drops requests shorter than kMinMessage, so a forged source gains nothing.
// A TCP stream opens with one kMinMessage record (Upload or Download). A
// stream the server cannot take gets one Busy record before the server
// closes it; download data never starts with the magic, so the first record
// tells the two apart, and an upload stream's server writes nothing else.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace extended
{
inline constexpr std::uint8_t kVersion = 1;
inline constexpr std::size_t kMinMessage = 64;

enum class Type : std::uint8_t
{
    Hello = 1,          // a = client nonce
    Welcome = 2,        // cookie = new session, a = the Hello's nonce
    Probe = 3,          // seq, a = client send time (microseconds, client clock)
    Echo = 4,           // the probe itself, type changed
    StatsRequest = 5,   // a, b = upload window, ms after the first upload stream opened
    Stats = 6,          // seq = distinct probes received, a = upload bytes in window, b = duplicate probes
    InboundRequest = 7, // a = nonce
    Inbound = 8,        // from another server port to the client's game port; a = the nonce
    Bye = 9,            // the client is done: the session ends now
    Busy = 10,          // a = retry after this many ms, b = BusyReason; cookie as asked, c = a Hello's nonce
    Upload = 16,        // TCP: the client sends for a ms, the server counts
    Download = 17       // TCP: the server sends for a ms
};

enum class BusyReason : std::uint8_t
{
    Sessions = 1, // this source, or the server, holds all the sessions it may
    Streams = 2,  // this source, or the server, holds all the streams it may
    Hellos = 3    // too many handshakes from this source
};

struct Message
{
    Type type = Type::Hello;
    std::uint64_t cookie = 0;
    std::uint32_t seq = 0;
    std::uint64_t a = 0;
    std::uint64_t b = 0;
    std::uint64_t c = 0;
};

using Bytes = std::vector<std::uint8_t>;

/// nSize bytes (at least kMinMessage).
Bytes Encode(const Message& message, std::size_t nSize = kMinMessage);
/// Nothing when the bytes are short, carry another magic or version, or an
/// unknown type.
std::optional<Message> Decode(const std::uint8_t* pData, std::size_t nLength);
} // namespace extended
