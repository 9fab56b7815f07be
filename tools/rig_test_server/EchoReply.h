#pragma once
// What the UDP echo service answers to one datagram, on its bytes alone: the
// socket, the rate limit and the fault counters stay in UdpEchoService.
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

/// The pong for a request that EchoText::ParsePing read as ping, or nothing
/// when the pong would be larger than the request: a forged source must gain
/// no amplification ("ping  5" reads as seq 0 and would grow into "pong 0 5").
std::optional<EchoText::Bytes> PongFor(const EchoText::Fields& ping, const std::uint8_t* pRequest,
                                       std::size_t nRequest, PongFault fault);

/// The whole decision for one datagram: ParsePing, then PongFor.
std::optional<EchoText::Bytes> EchoReply(const std::uint8_t* pRequest, std::size_t nRequest, PongFault fault);
