#include "Clock.h"

#include <atomic>
#include <cerrno>
#include <ctime>

namespace zul
{
namespace
{
std::uint64_t MonotonicMilliseconds()
{
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<std::uint64_t>(ts.tv_sec) * 1000u + static_cast<std::uint64_t>(ts.tv_nsec) / 1000000u;
}

// The origin is taken during static initialisation, so the tick counts from
// (about) process start, plus a fixed offset of one minute. The offset keeps a
// tick of 0 from ever being seen (the UDP test rejects pongs whose tick is 0 or
// below), and it makes the clock read as on a machine that has been up a
// while, as the Windows clocks do: the check sequence's first step, measured
// from a last step at 0, then runs at once instead of 100 ms after start. The
// tick still passes 2^31 only after 24.8 days of the process's own life.
constexpr std::uint64_t kTickOffsetMs = 60000;
const std::uint64_t g_origin = MonotonicMilliseconds() - kTickOffsetMs;
std::atomic<std::uint32_t> g_bias{0};
} // namespace

std::uint32_t GetTickCount()
{
    return static_cast<std::uint32_t>(MonotonicMilliseconds() - g_origin) +
           g_bias.load(std::memory_order_relaxed);
}

void SetTickCountBiasForTesting(std::uint32_t bias)
{
    g_bias.store(bias, std::memory_order_relaxed);
}

void Sleep(std::uint32_t milliseconds)
{
    timespec ts{static_cast<time_t>(milliseconds / 1000u),
                static_cast<long>(milliseconds % 1000u) * 1000000L};
    while (nanosleep(&ts, &ts) != 0 && errno == EINTR)
    {
    }
}
} // namespace zul
