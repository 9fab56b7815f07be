// Windows: the owning process ids come from the extended UDP tables (IPv4
// and IPv6), their executables from QueryFullProcessImageNameW.
#include "PortOwners.h"

#include <iphlpapi.h>
#include <windows.h>
#include <winsock2.h>
#include <ws2tcpip.h>

#include <algorithm>
#include <vector>

namespace
{
template <class Table, class Row>
void CollectOwners(ULONG family, std::uint16_t port, std::vector<DWORD>& pids)
{
    DWORD size = 0;
    std::vector<unsigned char> buffer;
    DWORD result = ERROR_INSUFFICIENT_BUFFER;
    // The table can grow between the size query and the read: try a few times.
    for (int attempt = 0; attempt < 4 && result == ERROR_INSUFFICIENT_BUFFER; ++attempt)
    {
        buffer.resize(size);
        result = ::GetExtendedUdpTable(buffer.empty() ? nullptr : buffer.data(), &size, FALSE, family,
                                       UDP_TABLE_OWNER_PID, 0);
    }
    if (result != NO_ERROR || buffer.empty())
        return;
    const auto* pTable = reinterpret_cast<const Table*>(buffer.data());
    for (DWORD i = 0; i < pTable->dwNumEntries; ++i)
    {
        const Row& row = pTable->table[i];
        if (ntohs(static_cast<u_short>(row.dwLocalPort)) == port)
            pids.push_back(row.dwOwningPid);
    }
}

tstring ExecutableName(DWORD pid)
{
    const HANDLE process = ::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, pid);
    if (process == nullptr)
        return tstring();
    wchar_t path[MAX_PATH * 4];
    DWORD length = static_cast<DWORD>(sizeof path / sizeof path[0]);
    tstring name;
    if (::QueryFullProcessImageNameW(process, 0, path, &length))
    {
        const std::wstring full(path, length);
        const std::size_t slash = full.find_last_of(L"\\/");
        const std::wstring base = slash == std::wstring::npos ? full : full.substr(slash + 1);
        name.assign(base.begin(), base.end());
    }
    ::CloseHandle(process);
    return name;
}
} // namespace

std::vector<PortOwner> FindUdpPortOwners(std::uint16_t port)
{
    std::vector<DWORD> pids;
    CollectOwners<MIB_UDPTABLE_OWNER_PID, MIB_UDPROW_OWNER_PID>(AF_INET, port, pids);
    CollectOwners<MIB_UDP6TABLE_OWNER_PID, MIB_UDP6ROW_OWNER_PID>(AF_INET6, port, pids);
    std::sort(pids.begin(), pids.end());
    pids.erase(std::unique(pids.begin(), pids.end()), pids.end());
    std::vector<PortOwner> owners;
    for (const DWORD pid : pids)
        owners.push_back({static_cast<std::uint32_t>(pid), ExecutableName(pid)});
    return owners;
}
