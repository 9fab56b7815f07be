#pragma once
// The Windows Firewall's COM objects for Firewall_win32.cpp. Kept apart from
// Firewall.h, whose HRESULT names stand in for the SDK's: this header's users
// see plain 32-bit results and no Windows header.
#include <cstdint>

#include "share/common/TString.h"

namespace firewall_com
{
/// CoInitializeEx, apartment-threaded with OLE1 DDE disabled.
std::int32_t Initialize();
void Uninitialize();
/// GetModuleFileNameW of the running program, at most 260 characters.
tstring ModuleFileName();

/// The current profile of the local policy, released with the object.
class Profile
{
public:
    /// HNetCfg.FwMgr -> local policy -> current profile; null when any step
    /// fails. The manager and the policy are released at once.
    static Profile* Open();
    ~Profile();
    Profile(const Profile&) = delete;
    Profile& operator=(const Profile&) = delete;

    bool IsApplicationEnabled(const char16_t* imagePath);
    std::int32_t AddApplication(const char16_t* imagePath, const char16_t* name);
    std::int32_t GetExceptionsNotAllowed(bool& bNotAllowed);

private:
    explicit Profile(void* pProfile) : m_pProfile(pProfile) {}
    void* m_pProfile; // INetFwProfile*
};
} // namespace firewall_com
