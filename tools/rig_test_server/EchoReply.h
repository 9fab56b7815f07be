#pragma once
// What the UDP echo service answers to one datagram, on its bytes alone: the
// socket, the rate limits and the counters stay in UdpEchoService. Nothing
// here allocates: it runs once per datagram of a flood.
#include <cstddef>
#include <cstdint>
#include <optional>

#include "RigInspector/EchoText.h"

/// How a pong is spoiled in the malformed-pongs mode; the client's parser
/// must refuse both faults.
enum class PongFault
{
    None,
    WrongWord, // the request itself with "ping" turned into "pang"
    NoTick     // "pong <seq>" without its tick field
};

/// The longest datagram read as a ping; no client sends one a fifth as long.
constexpr std::size_t kMaxPingBytes = 256;

/// Reads a ping exactly as EchoText::ParsePing does, for datagrams of up to
/// kMaxPingBytes; longer ones are no ping.
std::optional<EchoText::Fields> ReadPing(const std::uint8_t* pRequest, std::size_t nRequest);

/// Writes the pong for a ping into pPong, which has room for nRequest bytes:
/// its size, or 0 when the pong would be larger than the request, so that a
/// forged source gains no amplification ("ping  5" reads as seq 0 and would
/// grow into "pong 0 5").
std::size_t WritePong(const EchoText::Fields& ping, const std::uint8_t* pRequest, std::size_t nRequest,
                      PongFault fault, std::uint8_t* pPong);

/// The whole decision for one datagram: ReadPing, then WritePong; 0 = no answer.
std::size_t EchoReply(const std::uint8_t* pRequest, std::size_t nRequest, PongFault fault,
                      std::uint8_t* pPong);
