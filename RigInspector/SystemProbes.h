#pragma once
// The platform probes of the system checks. The checks call them only through
// g_systemProbes, so tests can put fakes in its place.
#include <cstdint>

/// True on every NT-family system (every POSIX system counts as one).
bool IsWindows98OrLater();
/// Windows XP with service pack 2 or later service packs; false elsewhere.
bool IsWindowsXpSp2();
/// The CPU clock in MHz from the time-stamp counter over a little more than
/// 500 ms of the millisecond tick; blocks the calling thread for that long.
std::uint32_t MeasureCpuSpeed();
/// Total and free local video memory in report megabytes; both 0 and false
/// when no video memory can be found (a software renderer has none).
bool GetVideoMemory(std::uint32_t& total, std::uint32_t& free);
/// Total and available physical memory in report megabytes; always true.
bool GetSystemMemory(std::uint32_t& total, std::uint32_t& available);
/// Total physical memory in bytes, not saturated at 4 GiB as the report's
/// figure is; 0 when the system does not say. For the JSON only.
std::uint64_t GetPhysicalMemoryBytes();

/// What the last real GetVideoMemory found, so a 0 can be told apart: no GPU
/// device at all, a probe that failed, or a GPU with no memory of its own
/// (only its share of system RAM, which is not video memory). Fakes leave it.
enum class VideoProbeDetail
{
    Unknown,
    Dedicated,
    IntegratedOnly,
    NoDevice,
    ProbeFailed
};
extern VideoProbeDetail g_lastVideoProbe;

/// A report megabyte is 1,024,000 bytes.
constexpr std::uint32_t kReportMegabyte = 1024000u;

/// The probes' 32-bit byte count: a count above 4 GiB - 1 reads as
/// 0xFFFFFFFF, as the Windows calls report an overflowing count; it never wraps.
constexpr std::uint32_t SaturateBytes(std::uint64_t bytes)
{
    return bytes > 0xFFFFFFFFull ? 0xFFFFFFFFu : static_cast<std::uint32_t>(bytes);
}

/// Bytes to report megabytes through the saturated 32-bit count.
constexpr std::uint32_t BytesToReportMegabytes(std::uint64_t bytes)
{
    return SaturateBytes(bytes) / kReportMegabyte;
}

/// The time-stamp method's arithmetic: both counts are the counter's low 32
/// bits, the difference wraps modulo 2^32 and 500 ms are assumed.
constexpr std::uint32_t CpuMhzFromCounts(std::uint32_t first, std::uint32_t second)
{
    return (second - first) / 500000u;
}

struct SystemProbes
{
    bool (*IsWindows98OrLater)();
    bool (*IsWindowsXpSp2)();
    std::uint32_t (*MeasureCpuSpeed)();
    bool (*GetVideoMemory)(std::uint32_t& total, std::uint32_t& free);
    bool (*GetSystemMemory)(std::uint32_t& total, std::uint32_t& available);
};

/// The real probes.
constexpr SystemProbes kRealSystemProbes{&IsWindows98OrLater, &IsWindowsXpSp2, &MeasureCpuSpeed,
                                         &GetVideoMemory, &GetSystemMemory};

/// The probes the checks call; the real ones unless a test replaced them.
extern SystemProbes g_systemProbes;
