#pragma once
// The Linux GPU back ends of the video probe: DRM's sysfs figures, and NVML
// and Vulkan, which run in a child process of their own.
#include <cstdint>
#include <optional>
#include <string>

#include "Gpu.h"

/// amdgpu's VRAM figures from a DRM sysfs tree (/sys/class/drm): the first
/// card with mem_info_vram_total; free is total minus mem_info_vram_used.
/// pGpu, when given, receives the card's vendor, name and driver as sysfs tells.
bool ReadDrmVideoMemory(const std::string& drmRoot, std::uint64_t& totalBytes, std::uint64_t& freeBytes,
                        GpuInfo* pGpu = nullptr);

/// Whether devRoot (/dev) holds a node through which a GPU driver could answer:
/// a DRM node (dri/card*, dri/renderD*), NVIDIA's (nvidia*) or WSL's (dxg).
bool HasGpuDeviceNode(const std::string& devRoot);

/// NVML, else Vulkan, asked in a short-lived child that a time-out bounds.
/// bIntegratedOnly: no answer, but an integrated GPU was seen. gpu: the GPU
/// that answered, or the integrated one seen; nothing otherwise.
bool ReadDriverVideoMemoryInChild(std::uint64_t& totalBytes, std::uint64_t& freeBytes, bool& bIntegratedOnly,
                                  std::optional<GpuInfo>& gpu);
