#pragma once
#include <cstdint>

namespace zul
{
/// The millisecond tick the checks and the sequence use (GetTickCount and
/// timeGetTime). Monotonic, counted from process start rather than from boot,
/// so that it stays below 2^31 for 24.8 days of the process's own life (the UDP
/// ping carries it as a signed value). It starts at one minute, not at 0. It wraps as 32-bit unsigned;
/// callers take differences modulo 2^32.
std::uint32_t GetTickCount();

/// Adds a bias to every later GetTickCount() so that tests can bring the tick
/// to the edge of 2^31 or 2^32. Not for production code.
void SetTickCountBiasForTesting(std::uint32_t bias);

/// Sleeps the calling thread for at least the given number of milliseconds.
void Sleep(std::uint32_t milliseconds);
} // namespace zul
