#include "Clock.h"

#include <atomic>

#include <windows.h>

#include <mmsystem.h>

namespace zul
{
namespace
{
// timeGetTime at the system's finest period (1 ms) rather than GetTickCount's
// 10-16 ms steps: the echo test times round trips of a few milliseconds. The
// period request lasts as long as the process.
std::uint32_t StartClock()
{
    ::timeBeginPeriod(1);
    return ::timeGetTime();
}

// As on Linux, the tick counts from process start plus one minute, so that a
// tick of 0 is never seen and 2^31 is reached only after 24.8 days of the
// process's own life. The 32-bit arithmetic wraps as timeGetTime does.
constexpr std::uint32_t kTickOffsetMs = 60000;
const std::uint32_t g_origin = StartClock() - kTickOffsetMs;
std::atomic<std::uint32_t> g_bias{0};
} // namespace

std::uint32_t GetTickCount()
{
    return static_cast<std::uint32_t>(::timeGetTime() - g_origin) + g_bias.load(std::memory_order_relaxed);
}

void SetTickCountBiasForTesting(std::uint32_t bias)
{
    g_bias.store(bias, std::memory_order_relaxed);
}

void Sleep(std::uint32_t milliseconds)
{
    ::Sleep(milliseconds);
}
} // namespace zul
