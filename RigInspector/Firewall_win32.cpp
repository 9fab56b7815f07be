#include <memory>

#include "Firewall.h"
#include "FirewallCom_win32.h"

namespace
{
class ComFirewallProfile : public IFirewallProfileApi
{
public:
    explicit ComFirewallProfile(firewall_com::Profile* pProfile) : m_pProfile(pProfile) {}
    bool IsApplicationEnabled(const char16_t* imagePath) override
    {
        return m_pProfile->IsApplicationEnabled(imagePath);
    }
    HRESULT AddApplication(const char16_t* imagePath, const char16_t* name) override
    {
        return m_pProfile->AddApplication(imagePath, name);
    }
    HRESULT GetExceptionsNotAllowed(bool& bNotAllowed) override
    {
        return m_pProfile->GetExceptionsNotAllowed(bNotAllowed);
    }

private:
    std::unique_ptr<firewall_com::Profile> m_pProfile;
};

class ComFirewallPlatform : public IFirewallPlatform
{
public:
    HRESULT CoInitializeEx() override { return firewall_com::Initialize(); }
    void CoUninitialize() override { firewall_com::Uninitialize(); }
    std::unique_ptr<IFirewallProfileApi> OpenCurrentProfile() override
    {
        firewall_com::Profile* pProfile = firewall_com::Profile::Open();
        if (pProfile == nullptr)
            return nullptr;
        return std::make_unique<ComFirewallProfile>(pProfile);
    }
    tstring GetModuleFileName() override { return firewall_com::ModuleFileName(); }
};
} // namespace

IFirewallPlatform& GetRealFirewallPlatform()
{
    static ComFirewallPlatform platform;
    return platform;
}
