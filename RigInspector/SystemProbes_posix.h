#pragma once
// Internal to the POSIX probes; declared for their tests.
#include <cstdint>
#include <string>

/// amdgpu's VRAM figures from a DRM sysfs tree (/sys/class/drm): the first
/// card with mem_info_vram_total; free is total minus mem_info_vram_used.
bool ReadDrmVideoMemory(const std::string& drmRoot, std::uint64_t& totalBytes, std::uint64_t& freeBytes);

/// Whether devRoot (/dev) holds a node through which a GPU driver could answer:
/// a DRM node (dri/card*, dri/renderD*), NVIDIA's (nvidia*) or WSL's (dxg).
bool HasGpuDeviceNode(const std::string& devRoot);

/// The CPU clock in MHz as the kernel tells it, for CPUs without a readable
/// time-stamp counter: cpufreq's cpuinfo_max_freq (kHz), else the first
/// "cpu MHz" line of /proc/cpuinfo; 0 when neither says.
std::uint32_t ReadKernelCpuMhz(const std::string& cpufreqFile, const std::string& cpuinfoFile);
