#include "Diagnostics.h"
#include "RigInspectorApp/AnalyzerSettings.h"
#include "RigInspectorApp/Inspector.h"
#include "SystemProbes.h"

VideoProbeDetail g_lastVideoProbe = VideoProbeDetail::Unknown;

namespace
{
constexpr const char16_t* kPassed = u"<font color=blue>passed.</font>";

// The factor is single precision on purpose: 1950 MHz must read 2.0GHz, as it
// always has, where an exact 0.001 would give 1.9GHz.
constexpr float kMhzToGhz = 0.001f;

double ToGhz(std::int32_t mhz)
{
    return static_cast<double>(mhz) * static_cast<double>(kMhzToGhz);
}

/// Why the video memory reads 0, where the probe can tell.
void DiagnoseNoVideoMemory(VideoProbeDetail detail)
{
    switch (detail)
    {
    case VideoProbeDetail::NoDevice:
        GetDiagnostics().Add("video_no_gpu_device",
                             u"No GPU device is present (only a software renderer, if any), so the video "
                             u"memory reads 0.");
        break;
    case VideoProbeDetail::IntegratedOnly:
        GetDiagnostics().Add("video_integrated_only",
                             u"The only GPU is integrated and has no video memory of its own; its share of "
                             u"system memory is not counted, so the video memory reads 0.");
        break;
    case VideoProbeDetail::ProbeFailed:
    case VideoProbeDetail::Unknown:
        GetDiagnostics().Add("video_probe_failed",
                             u"A GPU device is present but its video memory could not be read, so the video "
                             u"memory reads 0.");
        break;
    case VideoProbeDetail::Dedicated:
        break;
    }
}
} // namespace

void Inspector::CheckSystem()
{
    SystemResult& result = m_Results.system;
    result = SystemResult{};
    const tstring& moreInfo = g_settings.m_MinRequirementUrl;

    Print(u"<br>Checking OS...");
    result.osPassed = g_systemProbes.IsWindows98OrLater();
    if (result.osPassed)
        Print(kPassed);
    else
        Print(u"<font color=red>failed. You need Windows 98 or later! please <a href=\"%s\" "
              u"target=_blank>click "
              u"here</a> for more info.</font>",
              moreInfo);

    result.cpuHeadingMhz = g_systemProbes.MeasureCpuSpeed();
    Print(u"<br>Checking CPU clock(<b>%.1fGHz</b>)...",
          ToGhz(static_cast<std::int32_t>(result.cpuHeadingMhz)));
    m_CpuSpeed = static_cast<std::int32_t>(g_systemProbes.MeasureCpuSpeed());
    result.cpuSpeedMhz = m_CpuSpeed;
    result.cpuPassed = !(m_CpuSpeed < g_settings.m_MinCpuSpeed);
    if (result.cpuPassed)
        Print(kPassed);
    else
        Print(u"<font color=red>failed. You need faster CPU than %.1fGHz, please <a href=\"%s\" "
              u"target=_blank>click here</a> for more info.</font>",
              ToGhz(g_settings.m_MinCpuSpeed), moreInfo);

    std::uint32_t videoTotal = 0;
    std::uint32_t videoFree = 0;
    g_lastVideoProbe = VideoProbeDetail::Unknown;
    g_lastGpu.reset();
    result.videoProbeOk = g_systemProbes.GetVideoMemory(videoTotal, videoFree);
    if (!result.videoProbeOk)
        videoTotal = 0;
    if (videoTotal == 0 && (!result.videoProbeOk || g_lastVideoProbe != VideoProbeDetail::Unknown))
        DiagnoseNoVideoMemory(g_lastVideoProbe);
    result.gpu = g_lastGpu;
    m_VideoMemory = static_cast<std::int32_t>(videoTotal);
    result.videoMemoryMb = videoTotal;
    Print(u"<br>Checking Video Card(<b>%dM</b>)...", videoTotal);
    if (!result.videoProbeOk)
    {
        Print(u"error!");
    }
    else
    {
        // Unsigned on purpose: a negative minimum becomes a huge one and fails every machine.
        result.videoPassed = !(videoTotal < static_cast<std::uint32_t>(g_settings.m_MinVideoMemory));
        if (result.videoPassed)
            Print(kPassed);
        else
            Print(u"<font color=red>failed. You need more than %dMB for Video RAM, please <a href=\"%s\" "
                  u"target=_blank>click here</a> for more info.</font>",
                  g_settings.m_MinVideoMemory, moreInfo);
    }

    std::uint32_t memoryTotal = 0;
    std::uint32_t memoryAvailable = 0;
    g_systemProbes.GetSystemMemory(memoryTotal, memoryAvailable);
    m_SystemMemory = static_cast<std::int32_t>(memoryTotal);
    result.systemMemoryMb = memoryTotal;
    result.systemMemoryBytes = GetPhysicalMemoryBytes();
    Print(u"<br>Checking System Memory(<b>%dM</b>)...", memoryTotal);
    result.memoryPassed = !(memoryTotal < static_cast<std::uint32_t>(g_settings.m_MinSystemMemory));
    if (result.memoryPassed)
        Print(kPassed);
    else
        Print(u"<font color=red>failed. You need more than %dMB system memory, please <a href=\"%s\" "
              u"target=_blank>click here</a> for more info.</font>",
              g_settings.m_MinSystemMemory, moreInfo);
    result.ran = true;
}
