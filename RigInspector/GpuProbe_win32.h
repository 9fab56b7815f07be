#pragma once
// Internal to the Windows probes: the GPU by name through DXGI.
#include <optional>

#include "Gpu.h"

/// The hardware adapter with the most dedicated memory, as DXGI describes it;
/// nothing when dxgi.dll or a hardware adapter is missing.
std::optional<GpuInfo> ReadDxgiGpu();
