#pragma once
#include <cstdint>

namespace zul
{
/// The millisecond tick the checks and the sequence use (GetTickCount and
/// timeGetTime). Monotonic, counted from process start rather than from boot,
/// so that it stays below 2^31 for 24.8 days of the process's own life (the UDP
/// ping carries it as a signed value). It wraps as 32-bit unsigned; callers
/// take differences modulo 2^32.
std::uint32_t GetTickCount();

/// Adds a bias to every later GetTickCount() so that tests can bring the tick
/// to the edge of 2^31 or 2^32. Not for production code.
void SetTickCountBiasForTesting(std::uint32_t bias);

/// The millisecond clock Windows' timeGetTime reads: counted from system
/// start, wrapping as 32-bit unsigned. The check sequence paces its steps by
/// it; unlike GetTickCount it is far past 0 when the process starts, so the
/// first step does not wait for it to reach the pause between steps.
std::uint32_t MillisecondsSinceBoot();

/// Sleeps the calling thread for at least the given number of milliseconds.
void Sleep(std::uint32_t milliseconds);
} // namespace zul
