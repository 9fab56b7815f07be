// The unsaturated physical memory size on Windows, for the JSON: the report's
// figure comes from GlobalMemoryStatus, which stops at 4 GiB - 1.
#include "SystemProbes.h"

#include <windows.h>

std::uint64_t GetPhysicalMemoryBytes()
{
    MEMORYSTATUSEX status{};
    status.dwLength = sizeof status;
    return ::GlobalMemoryStatusEx(&status) ? status.ullTotalPhys : 0;
}
