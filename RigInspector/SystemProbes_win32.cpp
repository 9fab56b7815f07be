#include "SystemProbes.h"

#include <windows.h>

#include <ddraw.h>
#include <intrin.h>
#include <mmsystem.h>

#include "GpuProbe_win32.h"
#include "SystemProbes_win32.h"

SystemProbes g_systemProbes = kRealSystemProbes;

namespace
{
// The long record first; a system that knows only the short one (before NT 4
// SP6) fails that call, and is asked again with the short size.
bool ReadVersion(VersionRecord& version)
{
    OSVERSIONINFOEXW info{};
    info.dwOSVersionInfoSize = sizeof(OSVERSIONINFOEXW);
    auto* pInfo = reinterpret_cast<OSVERSIONINFOW*>(&info);
    if (!::GetVersionExW(pInfo))
    {
        info = OSVERSIONINFOEXW{};
        info.dwOSVersionInfoSize = sizeof(OSVERSIONINFOW);
        if (!::GetVersionExW(pInfo))
            return false;
    }
    version.platformId = info.dwPlatformId;
    version.major = info.dwMajorVersion;
    version.minor = info.dwMinorVersion;
    version.servicePackMajor = info.wServicePackMajor;
    return true;
}
} // namespace

bool IsWindows98OrLaterRecord(const VersionRecord& version)
{
    if (version.platformId == VER_PLATFORM_WIN32_NT)
        return true;
    if (version.platformId != VER_PLATFORM_WIN32_WINDOWS)
        return false;
    if (version.major > 4)
        return true;
    return version.major == 4 && version.minor > 0;
}

bool IsWindowsXpSp2Record(const VersionRecord& version)
{
    return version.major == 5 && version.minor == 1 && version.servicePackMajor >= 2;
}

bool IsWindows98OrLater()
{
    VersionRecord version;
    return ReadVersion(version) && IsWindows98OrLaterRecord(version);
}

bool IsWindowsXpSp2()
{
    VersionRecord version;
    return ReadVersion(version) && IsWindowsXpSp2Record(version);
}

std::uint32_t MeasureCpuSpeed()
{
    const HANDLE hProcess = ::GetCurrentProcess();
    const DWORD oldClass = ::GetPriorityClass(hProcess);
    ::SetPriorityClass(hProcess, HIGH_PRIORITY_CLASS);

    const DWORD start = ::timeGetTime();
    DWORD reference = start;
    while (static_cast<std::int32_t>(reference - start) < 2)
        reference = ::timeGetTime();
    const auto first = static_cast<std::uint32_t>(__rdtsc());
    while (static_cast<std::int32_t>(::timeGetTime() - reference) <= 500)
    {
    }
    const auto second = static_cast<std::uint32_t>(__rdtsc());

    ::SetPriorityClass(hProcess, oldClass);
    return CpuMhzFromCounts(first, second);
}

// DirectDraw is loaded at run time, so the analyzer starts on a PC without it
// and reports the video check as an error there.
bool GetVideoMemory(std::uint32_t& total, std::uint32_t& free)
{
    total = 0;
    free = 0;
    g_lastVideoProbe = VideoProbeDetail::ProbeFailed;
    // The report's figure stays DirectDraw's; the GPU's name and true size are DXGI's.
    g_lastGpu = ReadDxgiGpu();
    const HMODULE hModule = ::LoadLibraryA("ddraw.dll");
    if (hModule == nullptr)
        return false;
    using DirectDrawCreateFn = HRESULT(WINAPI*)(GUID*, LPDIRECTDRAW*, IUnknown*);
    const auto pCreate = reinterpret_cast<DirectDrawCreateFn>(
        reinterpret_cast<void*>(::GetProcAddress(hModule, "DirectDrawCreate")));
    if (pCreate == nullptr)
    {
        ::FreeLibrary(hModule);
        return false;
    }
    bool bResult = false;
    IDirectDraw* pDirectDraw = nullptr;
    if (SUCCEEDED(pCreate(nullptr, &pDirectDraw, nullptr)) && pDirectDraw != nullptr)
    {
        IDirectDraw4* pDirectDraw4 = nullptr;
        if (SUCCEEDED(pDirectDraw->QueryInterface(IID_IDirectDraw4, reinterpret_cast<void**>(&pDirectDraw4))))
        {
            DDSCAPS2 caps{};
            caps.dwCaps = DDSCAPS_VIDEOMEMORY | DDSCAPS_LOCALVIDMEM;
            DWORD totalBytes = 0;
            DWORD freeBytes = 0;
            if (SUCCEEDED(pDirectDraw4->GetAvailableVidMem(&caps, &totalBytes, &freeBytes)))
            {
                total = totalBytes / kReportMegabyte;
                free = freeBytes / kReportMegabyte;
                bResult = true;
            }
            pDirectDraw4->Release();
        }
    }
    if (pDirectDraw != nullptr)
        pDirectDraw->Release();
    ::FreeLibrary(hModule);
    // DirectDraw cannot tell a missing device from a failing one.
    g_lastVideoProbe = bResult ? VideoProbeDetail::Dedicated : VideoProbeDetail::ProbeFailed;
    return bResult;
}

// GlobalMemoryStatus counts in SIZE_T; a 64-bit process sees the whole
// memory, which is held to the 32-bit count the report was made for.
bool GetSystemMemory(std::uint32_t& total, std::uint32_t& available)
{
    MEMORYSTATUS status{};
    // The record's size in a 32-bit process, as the analyzer always filled it
    // in; GlobalMemoryStatus sets the field itself and reads nothing from it.
    status.dwLength = 32;
    ::GlobalMemoryStatus(&status);
    total = BytesToReportMegabytes(status.dwTotalPhys);
    available = BytesToReportMegabytes(status.dwAvailPhys);
    return true;
}
