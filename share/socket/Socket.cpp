#include "Socket.h"

#include "SocketPlatform.h"
#include "share/common/StringUtil.h"

namespace zul::socket
{
bool Startup()
{
    return platform::Startup();
}

void Cleanup()
{
    platform::Cleanup();
}

tstring ResolveHost(const tstring& host)
{
    in_addr addr{};
    if (!platform::ResolveIPv4(zul::ToMultiByte(host), addr))
        return tstring();
    return platform::AddressToText(addr);
}

tstring GetLocalHostName()
{
    std::string name;
    if (!platform::GetHostName(name))
        return tstring();
    return zul::ToWide(name);
}

bool IsPublicAddress(const tstring& address)
{
    if (address.empty())
        return false;
    static const std::uint32_t s_Loopback = platform::TextToAddress(u"127.0.0.1").s_addr;
    const in_addr addr = platform::TextToAddress(address);
    const auto* pOctet = reinterpret_cast<const unsigned char*>(&addr.s_addr);
    if (addr.s_addr == 0 || addr.s_addr == s_Loopback)
        return false;
    if (pOctet[0] == 10)
        return false;
    if (pOctet[0] == 172 && (pOctet[1] & 0xF0) == 0x10)
        return false;
    if (pOctet[0] == 192 && pOctet[1] == 168)
        return false;
    return true;
}

std::list<tstring> GetAdapterAddresses()
{
    std::list<tstring> addresses;
    for (const platform::AdapterInfo& adapter : platform::ListAdapters())
    {
        if (adapter.bEthernet)
            addresses.push_back(zul::ToWide(adapter.firstIPv4.empty() ? "0.0.0.0" : adapter.firstIPv4));
    }
    return addresses;
}

tstring GetPublicAddress()
{
    for (const tstring& address : GetAdapterAddresses())
    {
        if (IsPublicAddress(address))
            return address;
    }
    return tstring();
}
} // namespace zul::socket
