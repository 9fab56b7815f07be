#include <unistd.h>

#include <string>

#include "Firewall.h"
#include "share/common/StringUtil.h"

namespace
{
/// There is no Windows Firewall here: COM always starts, the manager never answers.
class PosixFirewallPlatform : public IFirewallPlatform
{
public:
    HRESULT CoInitializeEx() override { return S_OK; }
    void CoUninitialize() override {}
    std::unique_ptr<IFirewallProfileApi> OpenCurrentProfile() override { return nullptr; }
    tstring GetModuleFileName() override
    {
        char buffer[4096];
        const ssize_t n = ::readlink("/proc/self/exe", buffer, sizeof buffer);
        if (n <= 0)
            return tstring();
        return zul::ToWide(buffer, static_cast<int>(n));
    }
};
} // namespace

IFirewallPlatform& GetRealFirewallPlatform()
{
    static PosixFirewallPlatform platform;
    return platform;
}
