#include "SystemProbes.h"

#include <sys/resource.h>
#include <sys/sysinfo.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <string>

#if defined(__x86_64__) || defined(__i386__)
#include <x86intrin.h>
#endif

#include "SystemProbes_posix.h"
#include "share/common/Clock.h"

SystemProbes g_systemProbes = kRealSystemProbes;

bool IsWindows98OrLater()
{
    // Every POSIX system counts as the NT family; only a failing version query fails.
    utsname name{};
    return ::uname(&name) == 0;
}

bool IsWindowsXpSp2()
{
    return false;
}

namespace
{
#if defined(__x86_64__) || defined(__i386__)
constexpr bool kHasTimeStampCounter = true;
std::uint32_t ReadTimeStampLow()
{
    return static_cast<std::uint32_t>(__rdtsc());
}
#else
// No time-stamp counter user space can read (ARM): the kernel's clock figure
// stands in for the measurement.
constexpr bool kHasTimeStampCounter = false;
std::uint32_t ReadTimeStampLow()
{
    return 0;
}
#endif

/// Raises the calling thread's priority for one measurement where the system
/// allows it (Linux keeps nice values per thread) and always puts it back.
class RaisedPriority
{
public:
    RaisedPriority()
    {
        errno = 0;
        m_Old = ::getpriority(PRIO_PROCESS, 0);
        m_bKnown = !(m_Old == -1 && errno != 0);
        if (m_bKnown)
            (void)::setpriority(PRIO_PROCESS, 0, -10); // refused without the right: measured as is
    }
    ~RaisedPriority()
    {
        if (m_bKnown)
            (void)::setpriority(PRIO_PROCESS, 0, m_Old);
    }
    RaisedPriority(const RaisedPriority&) = delete;
    RaisedPriority& operator=(const RaisedPriority&) = delete;

private:
    int m_Old = 0;
    bool m_bKnown = false;
};
} // namespace

std::uint32_t MeasureCpuSpeed()
{
    if (!kHasTimeStampCounter)
        return ReadKernelCpuMhz("/sys/devices/system/cpu/cpu0/cpufreq/cpuinfo_max_freq", "/proc/cpuinfo");
    RaisedPriority priority;
    const std::uint32_t start = zul::GetTickCount();
    std::uint32_t reference = start;
    while (static_cast<std::int32_t>(reference - start) < 2)
        reference = zul::GetTickCount();
    const std::uint32_t first = ReadTimeStampLow();
    while (static_cast<std::int32_t>(zul::GetTickCount() - reference) <= 500)
    {
    }
    const std::uint32_t second = ReadTimeStampLow();
    return CpuMhzFromCounts(first, second);
}

bool GetVideoMemory(std::uint32_t& total, std::uint32_t& free)
{
    total = 0;
    free = 0;
    std::uint64_t totalBytes = 0;
    std::uint64_t freeBytes = 0;
    g_lastVideoProbe = VideoProbeDetail::Dedicated;
    g_lastGpu.reset();
    GpuInfo drmGpu;
    // Every hardware driver answers through a device node; without one, the
    // child would load every installed driver (about 100 ms) only to find the
    // software renderers, whose memory is system memory.
    if (ReadDrmVideoMemory("/sys/class/drm", totalBytes, freeBytes, &drmGpu))
    {
        g_lastGpu = drmGpu;
    }
    else
    {
        if (!HasGpuDeviceNode("/dev"))
        {
            g_lastVideoProbe = VideoProbeDetail::NoDevice;
            return false;
        }
        bool bIntegratedOnly = false;
        if (!ReadDriverVideoMemoryInChild(totalBytes, freeBytes, bIntegratedOnly, g_lastGpu))
        {
            // A GPU without memory of its own has 0 MB of it: a measurement,
            // not a failed probe.
            g_lastVideoProbe =
                bIntegratedOnly ? VideoProbeDetail::IntegratedOnly : VideoProbeDetail::ProbeFailed;
            return bIntegratedOnly;
        }
    }
    total = BytesToReportMegabytes(totalBytes);
    free = BytesToReportMegabytes(freeBytes);
    return true;
}

bool GetSystemMemory(std::uint32_t& total, std::uint32_t& available)
{
    total = 0;
    available = 0;
    struct sysinfo info
    {
    };
    if (::sysinfo(&info) != 0)
        return true; // as the Windows call, this probe has no failure: 0M
    const std::uint64_t unit = info.mem_unit == 0 ? 1 : info.mem_unit;
    total = BytesToReportMegabytes(static_cast<std::uint64_t>(info.totalram) * unit);
    available = BytesToReportMegabytes((static_cast<std::uint64_t>(info.freeram) + info.bufferram) * unit);
    return true;
}

std::uint64_t GetPhysicalMemoryBytes()
{
    struct sysinfo info
    {
    };
    if (::sysinfo(&info) != 0)
        return 0;
    return static_cast<std::uint64_t>(info.totalram) * (info.mem_unit == 0 ? 1 : info.mem_unit);
}

std::uint32_t ReadKernelCpuMhz(const std::string& cpufreqFile, const std::string& cpuinfoFile)
{
    // cpufreq gives the highest clock in kHz: what the time-stamp method sees
    // on a CPU that is busy measuring.
    std::ifstream cpufreq(cpufreqFile);
    std::uint64_t kHz = 0;
    if (cpufreq >> kHz && kHz >= 1000)
        return static_cast<std::uint32_t>(std::min<std::uint64_t>(kHz / 1000, 0xFFFFFFFFu));
    // Without cpufreq, the kernel's figure for the first CPU ("cpu MHz : 1800.000").
    std::ifstream cpuinfo(cpuinfoFile);
    std::string line;
    while (std::getline(cpuinfo, line))
    {
        const std::size_t colon = line.find(':');
        if (colon == std::string::npos || line.compare(0, 7, "cpu MHz") != 0)
            continue;
        const double mhz = std::strtod(line.c_str() + colon + 1, nullptr);
        if (mhz >= 1.0 && mhz < 4294967295.0)
            return static_cast<std::uint32_t>(mhz);
    }
    return 0;
}
