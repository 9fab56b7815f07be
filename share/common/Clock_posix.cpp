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
// (about) process start. One is added so that a tick of 0 is never seen: the
// UDP test rejects pongs whose tick is 0 or below.
const std::uint64_t g_origin = MonotonicMilliseconds() - 1u;
std::atomic<std::uint32_t> g_bias{0};
} // namespace

std::uint32_t GetTickCount()
{
    return static_cast<std::uint32_t>(MonotonicMilliseconds() - g_origin) +
           g_bias.load(std::memory_order_relaxed);
}

std::uint32_t MillisecondsSinceBoot()
{
    // CLOCK_MONOTONIC counts from boot on Linux (suspended time aside).
    return static_cast<std::uint32_t>(MonotonicMilliseconds());
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
