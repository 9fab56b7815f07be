// winsock2.h before windows.h, and both before the IP helper's and WLAN's headers.
#include <winsock2.h>
#include <ws2tcpip.h>

#include <windows.h>

#include <iphlpapi.h>
#include <objbase.h>
#include <wlanapi.h>

#include <limits>
#include <vector>

#include "Connection.h"
#include "PathVerdict.h"
#include "share/common/StringUtil.h"

namespace
{
// The interface types (ipifcons.h) by their numbers, which are fixed.
constexpr ULONG kIfEthernet = 6;
constexpr ULONG kIfPpp = 23;
constexpr ULONG kIfLoopback = 24;
constexpr ULONG kIfPropVirtual = 53; // WireGuard's and many VPNs' adapters
constexpr ULONG kIfWifi = 71;
constexpr ULONG kIfTunnel = 131;
constexpr ULONG kIfWwan = 243;
constexpr ULONG kIfWwan2 = 244;

ConnectionType TypeOf(ULONG ifType)
{
    switch (ifType)
    {
    case kIfEthernet:
        return ConnectionType::Ethernet;
    case kIfWifi:
        return ConnectionType::Wifi;
    case kIfWwan:
    case kIfWwan2:
        return ConnectionType::Cellular;
    case kIfLoopback:
        return ConnectionType::Loopback;
    case kIfTunnel:
    case kIfPpp: // on a PC, a PPP adapter is a VPN's (or a dial-up's)
    case kIfPropVirtual:
        return ConnectionType::Tunnel;
    default:
        return ConnectionType::Other;
    }
}

/// The Wi-Fi signal quality (0-100) of the adapter named by its GUID string;
/// wlanapi.dll is loaded here because systems without the WLAN service lack it.
std::optional<int> QueryWifiSignal(const char* adapterGuid)
{
    wchar_t wideGuid[64] = {};
    if (::MultiByteToWideChar(CP_ACP, 0, adapterGuid, -1, wideGuid, 64) == 0)
        return std::nullopt;
    GUID guid{};
    if (FAILED(::CLSIDFromString(wideGuid, &guid)))
        return std::nullopt;
    const HMODULE wlan = ::LoadLibraryW(L"wlanapi.dll");
    if (wlan == nullptr)
        return std::nullopt;
    using OpenFn = DWORD(WINAPI*)(DWORD, PVOID, PDWORD, PHANDLE);
    using CloseFn = DWORD(WINAPI*)(HANDLE, PVOID);
    using QueryFn =
        DWORD(WINAPI*)(HANDLE, const GUID*, WLAN_INTF_OPCODE, PVOID, PDWORD, PVOID*, PWLAN_OPCODE_VALUE_TYPE);
    using FreeFn = VOID(WINAPI*)(PVOID);
    const auto open =
        reinterpret_cast<OpenFn>(reinterpret_cast<void*>(::GetProcAddress(wlan, "WlanOpenHandle")));
    const auto close =
        reinterpret_cast<CloseFn>(reinterpret_cast<void*>(::GetProcAddress(wlan, "WlanCloseHandle")));
    const auto query =
        reinterpret_cast<QueryFn>(reinterpret_cast<void*>(::GetProcAddress(wlan, "WlanQueryInterface")));
    const auto freeMemory =
        reinterpret_cast<FreeFn>(reinterpret_cast<void*>(::GetProcAddress(wlan, "WlanFreeMemory")));
    std::optional<int> signal;
    HANDLE handle = nullptr;
    DWORD version = 0;
    if (open && close && query && freeMemory && open(2, nullptr, &version, &handle) == ERROR_SUCCESS)
    {
        DWORD size = 0;
        PVOID data = nullptr;
        if (query(handle, &guid, wlan_intf_opcode_current_connection, nullptr, &size, &data, nullptr) ==
                ERROR_SUCCESS &&
            data != nullptr)
        {
            if (size >= sizeof(WLAN_CONNECTION_ATTRIBUTES))
            {
                const auto* attributes = static_cast<const WLAN_CONNECTION_ATTRIBUTES*>(data);
                const ULONG quality = attributes->wlanAssociationAttributes.wlanSignalQuality;
                if (quality <= 100)
                    signal = static_cast<int>(quality);
            }
            freeMemory(data);
        }
        close(handle, nullptr);
    }
    ::FreeLibrary(wlan);
    return signal;
}

} // namespace

std::optional<ConnectionInfo> ProbeConnection(const std::string& host)
{
    // Dotted IPv4 only: hosts are never looked up by name.
    const std::optional<std::uint32_t> parsed = ParseIPv4(host);
    if (!parsed)
        return std::nullopt;
    in_addr dotted{};
    dotted.s_addr = htonl(*parsed);
    const std::optional<in_addr> address = dotted;
    sockaddr_in destination{};
    destination.sin_family = AF_INET;
    destination.sin_addr = *address;
    // 127.0.0.0/8 never leaves the machine, whatever the route table says
    // (Wine's best interface for it is the network adapter).
    const bool bLoopback = (ntohl(address->s_addr) >> 24) == 127;
    DWORD index = 0;
    if (!bLoopback && ::GetBestInterfaceEx(reinterpret_cast<sockaddr*>(&destination), &index) != NO_ERROR)
        return std::nullopt;

    ULONG size = 16 * 1024;
    std::vector<unsigned char> buffer;
    ULONG status = ERROR_BUFFER_OVERFLOW;
    // The list can grow between the two calls; three tries bound the race.
    for (int attempt = 0; attempt < 3 && status == ERROR_BUFFER_OVERFLOW; ++attempt)
    {
        buffer.resize(size);
        status = ::GetAdaptersAddresses(
            AF_UNSPEC, GAA_FLAG_SKIP_ANYCAST | GAA_FLAG_SKIP_MULTICAST | GAA_FLAG_SKIP_DNS_SERVER, nullptr,
            reinterpret_cast<IP_ADAPTER_ADDRESSES*>(buffer.data()), &size);
    }
    if (status != NO_ERROR)
        return std::nullopt;
    for (auto* adapter = reinterpret_cast<IP_ADAPTER_ADDRESSES*>(buffer.data()); adapter != nullptr;
         adapter = adapter->Next)
    {
        if (bLoopback ? adapter->IfType != kIfLoopback : adapter->IfIndex != index)
            continue;
        ConnectionInfo info;
        info.interfaceName = adapter->FriendlyName != nullptr
                                 ? zul::Utf16ToUtf8(reinterpret_cast<const char16_t*>(adapter->FriendlyName))
                                 : std::string(adapter->AdapterName);
        info.type = TypeOf(adapter->IfType);
        info.vpnOrTunnel = info.type == ConnectionType::Tunnel;
        const ULONG64 bitsPerSecond = adapter->TransmitLinkSpeed;
        if (bitsPerSecond != 0 && bitsPerSecond != std::numeric_limits<ULONG64>::max() &&
            info.type != ConnectionType::Loopback && info.type != ConnectionType::Tunnel)
            info.linkMbps = bitsPerSecond / 1000000u;
        if (info.type == ConnectionType::Wifi)
            info.wifiSignalPercent = QueryWifiSignal(adapter->AdapterName);
        return info;
    }
    if (bLoopback) // no loopback adapter listed: the system's own name for it
        return ConnectionInfo{"Loopback Pseudo-Interface 1", ConnectionType::Loopback, std::nullopt,
                              std::nullopt, false};
    return std::nullopt;
}
