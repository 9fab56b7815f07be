#pragma once
// The firewall inspection and registration. COM and the firewall's automation
// objects sit behind IFirewallPlatform, so the report logic runs, and is
// tested, where there is no Windows Firewall.
#include <cstdint>
#include <iosfwd>
#include <memory>

#include "share/common/TString.h"

using HRESULT = std::int32_t;

constexpr HRESULT S_OK = 0;
constexpr HRESULT S_FALSE = 1;
constexpr HRESULT RPC_E_CHANGED_MODE = static_cast<HRESULT>(0x80010106u);
constexpr HRESULT E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000Eu);
constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005u);

constexpr bool Succeeded(HRESULT hr)
{
    return hr >= 0;
}

/// The current profile of the local firewall policy (INetFwProfile), as raw
/// answers; empty-string rules live in FirewallProfile above it.
class IFirewallProfileApi
{
public:
    virtual ~IFirewallProfileApi() = default;
    /// The authorized application listed under imagePath exists and is enabled.
    virtual bool IsApplicationEnabled(const char16_t* imagePath) = 0;
    /// Adds a new authorized-application entry with that image path and name.
    virtual HRESULT AddApplication(const char16_t* imagePath, const char16_t* name) = 0;
    /// get_ExceptionsNotAllowed: the call's result, and the flag when it succeeded.
    virtual HRESULT GetExceptionsNotAllowed(bool& bNotAllowed) = 0;
};

/// COM and the firewall manager as the firewall code uses them.
class IFirewallPlatform
{
public:
    virtual ~IFirewallPlatform() = default;
    /// CoInitializeEx, apartment-threaded with OLE1 DDE disabled.
    virtual HRESULT CoInitializeEx() = 0;
    virtual void CoUninitialize() = 0;
    /// The manager's local policy's current profile, or null when the manager
    /// cannot be reached (always, where there is no Windows Firewall).
    virtual std::unique_ptr<IFirewallProfileApi> OpenCurrentProfile() = 0;
    /// The running program's full path (GetModuleFileNameW).
    virtual tstring GetModuleFileName() = 0;
};

/// The platform file's own layer (Firewall_posix.cpp here).
IFirewallPlatform& GetRealFirewallPlatform();
/// The platform the firewall code uses: the real one unless a test set one.
IFirewallPlatform& GetFirewallPlatform();
/// Replaces the platform (null restores the real one). For tests.
void SetFirewallPlatform(IFirewallPlatform* pPlatform);

/// Where IsFirewallOpenFor writes its two sentences: standard output unless a
/// front end whose standard output carries data (JSON) sends them elsewhere.
void SetFirewallMessageStream(std::ostream* pStream);

/// Holds one firewall profile; never exists without one.
class FirewallProfile
{
public:
    /// Opens the current profile; null when the firewall cannot be reached.
    static std::unique_ptr<FirewallProfile> Create();

    /// False for an empty path, a path not listed, or a disabled entry.
    bool IsApplicationEnabled(const char16_t* imagePath) const;
    /// E_OUTOFMEMORY for an empty path or name, else the add's result.
    HRESULT AddApplication(const char16_t* imagePath, const char16_t* name) const;
    HRESULT GetExceptionsNotAllowed(bool& bNotAllowed) const;

private:
    explicit FirewallProfile(std::unique_ptr<IFirewallProfileApi> pProfile) : m_pProfile(std::move(pProfile))
    {
    }
    std::unique_ptr<IFirewallProfileApi> m_pProfile;
};

/// Adds an authorized application through a profile of its own.
bool AddFirewallException(const char16_t* imagePath, const char16_t* name);
/// Whether imagePath may pass the firewall (true when it cannot be reached).
bool IsFirewallOpenFor(const char16_t* imagePath);

/// The analyzer's path as the firewall knows it: at most 260 characters,
/// "/" as "\\", lower case.
tstring OwnImagePathFrom(const tstring& modulePath);
/// The game's path: the own path with "patcher\\fc.exe" replaced by "game\\DunmoreNine.exe".
tstring GameImagePathFrom(const tstring& modulePath);
tstring GetOwnImagePath();
tstring GetGameImagePath();

/// True without a profile; otherwise whether the game's entry was added.
bool RegisterGame(const FirewallProfile* pProfile);
/// True without a profile; otherwise whether the analyzer's own entry was added.
bool RegisterSelf(const FirewallProfile* pProfile);
