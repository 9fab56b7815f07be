#include "Gpu.h"

#include <cstdio>

std::optional<GpuInfo> g_lastGpu;

std::string GpuVendorName(std::uint32_t pciVendorId)
{
    switch (pciVendorId)
    {
    case 0x10de:
        return "NVIDIA";
    case 0x1002:
    case 0x1022:
        return "AMD";
    case 0x8086:
        return "Intel";
    case 0x5143:
        return "Qualcomm";
    case 0x13b5:
        return "ARM";
    case 0x1414:
        return "Microsoft";
    case 0x15ad:
        return "VMware";
    case 0x1af4:
        return "Red Hat (virtio)";
    default:
        break;
    }
    char hex[16];
    std::snprintf(hex, sizeof hex, "0x%04x", static_cast<unsigned>(pciVendorId));
    return hex;
}
