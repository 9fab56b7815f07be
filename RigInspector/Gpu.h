#pragma once
// The GPU by name: what a support team asks first, beside the report's
// video-memory figure. The video probe fills it as it measures.
#include <cstdint>
#include <optional>
#include <string>

struct GpuInfo
{
    std::string name;              // empty when the system does not tell
    std::string vendor;            // "NVIDIA", "AMD", "Intel", ... or the PCI id in hex
    std::string driverVersion;     // empty when unknown
    std::uint64_t memoryBytes = 0; // dedicated memory, not saturated; 0 for an integrated GPU
    bool integrated = false;       // its memory is a share of system RAM
};

/// The vendor's common name for a PCI vendor id; the id as "0x10de" otherwise.
std::string GpuVendorName(std::uint32_t pciVendorId);

/// The GPU the last real GetVideoMemory measured, or the integrated one it
/// saw instead; nothing when it found none. Fakes leave it.
extern std::optional<GpuInfo> g_lastGpu;
