#include <windows.h>

#include <dxgi.h>

#include <cstdio>

#include "GpuProbe_win32.h"
#include "share/common/StringUtil.h"

namespace
{
// An adapter with no more dedicated memory than this lives on system RAM
// (Intel's and AMD's integrated GPUs report a small carve-out).
constexpr SIZE_T kIntegratedCarveOutBytes = 512u * 1024u * 1024u;

std::string DriverVersion(IDXGIAdapter1* adapter)
{
    // The user-mode driver's version, as Device Manager shows it (a.b.c.d).
    LARGE_INTEGER umd{};
    if (FAILED(adapter->CheckInterfaceSupport(IID_IDXGIDevice, &umd)))
        return {};
    char text[48];
    const auto high = static_cast<std::uint32_t>(umd.HighPart);
    const auto low = static_cast<std::uint32_t>(umd.LowPart);
    std::snprintf(text, sizeof text, "%u.%u.%u.%u", high >> 16, high & 0xffff, low >> 16, low & 0xffff);
    return text;
}
} // namespace

std::optional<GpuInfo> ReadDxgiGpu()
{
    // Loaded here: dxgi.dll is missing before Windows Vista.
    const HMODULE dxgi = ::LoadLibraryW(L"dxgi.dll");
    if (dxgi == nullptr)
        return std::nullopt;
    using CreateFactoryFn = HRESULT(WINAPI*)(REFIID, void**);
    const auto create = reinterpret_cast<CreateFactoryFn>(
        reinterpret_cast<void*>(::GetProcAddress(dxgi, "CreateDXGIFactory1")));
    IDXGIFactory1* factory = nullptr;
    std::optional<GpuInfo> best;
    if (create != nullptr && SUCCEEDED(create(IID_IDXGIFactory1, reinterpret_cast<void**>(&factory))) &&
        factory != nullptr)
    {
        // Bounded: no system has this many adapters.
        IDXGIAdapter1* adapter = nullptr;
        for (UINT i = 0; i < 64 && factory->EnumAdapters1(i, &adapter) != DXGI_ERROR_NOT_FOUND; ++i)
        {
            if (adapter == nullptr)
                break;
            DXGI_ADAPTER_DESC1 desc{};
            if (SUCCEEDED(adapter->GetDesc1(&desc)) && (desc.Flags & DXGI_ADAPTER_FLAG_SOFTWARE) == 0)
            {
                GpuInfo gpu;
                gpu.name = zul::Utf16ToUtf8(reinterpret_cast<const char16_t*>(desc.Description));
                gpu.vendor = GpuVendorName(desc.VendorId);
                gpu.driverVersion = DriverVersion(adapter);
                gpu.integrated = desc.DedicatedVideoMemory <= kIntegratedCarveOutBytes;
                gpu.memoryBytes = gpu.integrated ? 0 : desc.DedicatedVideoMemory;
                const bool bBetter =
                    !best || (best->integrated && !gpu.integrated) ||
                    (best->integrated == gpu.integrated && gpu.memoryBytes > best->memoryBytes);
                if (bBetter)
                    best = gpu;
            }
            adapter->Release();
            adapter = nullptr;
        }
        factory->Release();
    }
    ::FreeLibrary(dxgi);
    return best;
}
