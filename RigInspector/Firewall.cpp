#include "Firewall.h"

#include <iostream>

#include "RigInspectorApp/AnalyzerSettings.h"
#include "RigInspectorApp/Inspector.h"
#include "SystemProbes.h"
#include "share/common/StringUtil.h"

namespace
{
IFirewallPlatform* g_pFirewallPlatform = nullptr;
std::ostream* g_pFirewallMessages = nullptr;

constexpr std::size_t kMaxModulePath = 260;
constexpr char16_t kGameEntryName[] = u"Dunmore Nine";
constexpr char16_t kOwnEntryName[] = u"Dunmore Nine RigInspector";
constexpr char16_t kOwnRelativePath[] = u"patcher\\fc.exe";
constexpr char16_t kGameRelativePath[] = u"game\\DunmoreNine.exe";

constexpr const char16_t* kPassed = u"<font color=blue>passed.</font>";
constexpr const char16_t* kFailed = u"<font color=red>failed</font>";
constexpr const char16_t* kHintLine = u"<br>If you want to windows firewall off, you can click the '<font "
                                      u"color=blue><b>Windows Firewall off</b></font>' at left-bottom side.";

std::ostream& FirewallMessages()
{
    return g_pFirewallMessages != nullptr ? *g_pFirewallMessages : std::cout;
}

/// Starts COM for one firewall operation; prints the failure line and gives
/// false when it cannot. Uninitialises at Uninitialize, or on leaving, unless
/// COM was already running in another mode on this thread. The operations
/// uninitialise before their profile is released, so they call Uninitialize
/// while the profile still lives.
class ComScope
{
public:
    explicit ComScope(Inspector& inspector) : m_Hr(GetFirewallPlatform().CoInitializeEx())
    {
        if (!Succeeded(m_Hr) && m_Hr != RPC_E_CHANGED_MODE)
            inspector.Print(u"Failed to init COM: 0x%08lx<br>", m_Hr);
    }
    ~ComScope() { Uninitialize(); }
    void Uninitialize()
    {
        if (Succeeded(m_Hr) && !m_bUninitialized)
            GetFirewallPlatform().CoUninitialize();
        m_bUninitialized = true;
    }
    ComScope(const ComScope&) = delete;
    ComScope& operator=(const ComScope&) = delete;

    bool Ok() const { return Succeeded(m_Hr) || m_Hr == RPC_E_CHANGED_MODE; }
    HRESULT Result() const { return m_Hr; }

private:
    HRESULT m_Hr;
    bool m_bUninitialized = false;
};
} // namespace

IFirewallPlatform& GetFirewallPlatform()
{
    return g_pFirewallPlatform != nullptr ? *g_pFirewallPlatform : GetRealFirewallPlatform();
}

void SetFirewallPlatform(IFirewallPlatform* pPlatform)
{
    g_pFirewallPlatform = pPlatform;
}

void SetFirewallMessageStream(std::ostream* pStream)
{
    g_pFirewallMessages = pStream;
}

std::unique_ptr<FirewallProfile> FirewallProfile::Create()
{
    std::unique_ptr<IFirewallProfileApi> pProfile = GetFirewallPlatform().OpenCurrentProfile();
    if (!pProfile)
        return nullptr;
    return std::unique_ptr<FirewallProfile>(new FirewallProfile(std::move(pProfile)));
}

bool FirewallProfile::IsApplicationEnabled(const char16_t* imagePath) const
{
    if (imagePath == nullptr || *imagePath == 0)
        return false;
    return m_pProfile->IsApplicationEnabled(imagePath);
}

HRESULT FirewallProfile::AddApplication(const char16_t* imagePath, const char16_t* name) const
{
    if (imagePath == nullptr || *imagePath == 0 || name == nullptr || *name == 0)
        return E_OUTOFMEMORY;
    return m_pProfile->AddApplication(imagePath, name);
}

HRESULT FirewallProfile::GetExceptionsNotAllowed(bool& bNotAllowed) const
{
    bNotAllowed = false;
    return m_pProfile->GetExceptionsNotAllowed(bNotAllowed);
}

bool AddFirewallException(const char16_t* imagePath, const char16_t* name)
{
    const std::unique_ptr<FirewallProfile> pProfile = FirewallProfile::Create();
    if (!pProfile)
        return false;
    return Succeeded(pProfile->AddApplication(imagePath, name));
}

bool IsFirewallOpenFor(const char16_t* imagePath)
{
    const std::unique_ptr<FirewallProfile> pProfile = FirewallProfile::Create();
    if (!pProfile)
        return true;
    if (!pProfile->IsApplicationEnabled(imagePath))
    {
        FirewallMessages()
            << "Application is not enabled in the firewall. You will not be able host games or join "
               "a peer-to-peer game. Depending on the game, you may be able to join.\n";
        return false;
    }
    bool bNotAllowed = false;
    if (!Succeeded(pProfile->GetExceptionsNotAllowed(bNotAllowed)) || !bNotAllowed)
        return true;
    FirewallMessages() << "Firewall is on with no exceptions. You will not be able host games or join a "
                          "peer-to-peer game. Depending on the game, you may be able to join.\n";
    return false;
}

tstring OwnImagePathFrom(const tstring& modulePath)
{
    tstring path = modulePath.substr(0, kMaxModulePath);
    for (char16_t& c : path)
    {
        if (c == u'/')
            c = u'\\';
        // MakeLower in the "C" locale: ASCII letters only.
        else if (c >= u'A' && c <= u'Z')
            c = static_cast<char16_t>(c - u'A' + u'a');
    }
    return path;
}

tstring GameImagePathFrom(const tstring& modulePath)
{
    tstring path = OwnImagePathFrom(modulePath);
    const tstring from = kOwnRelativePath;
    const tstring to = kGameRelativePath;
    for (std::size_t pos = path.find(from); pos != tstring::npos; pos = path.find(from, pos + to.size()))
        path.replace(pos, from.size(), to);
    return path;
}

tstring GetOwnImagePath()
{
    return OwnImagePathFrom(GetFirewallPlatform().GetModuleFileName());
}

tstring GetGameImagePath()
{
    return GameImagePathFrom(GetFirewallPlatform().GetModuleFileName());
}

bool RegisterGame(const FirewallProfile* pProfile)
{
    if (pProfile == nullptr)
        return true;
    return AddFirewallException(GetGameImagePath().c_str(), kGameEntryName);
}

bool RegisterSelf(const FirewallProfile* pProfile)
{
    if (pProfile == nullptr)
        return true;
    return AddFirewallException(GetOwnImagePath().c_str(), kOwnEntryName);
}

int Inspector::CheckFirewall()
{
    FirewallResult& record = m_Results.firewall;
    record = FirewallResult{};
    int result = 0;
    ComScope com(*this);
    record.comHresult = com.Result();
    if (!com.Ok())
    {
        record.comFailed = true;
        record.ran = true;
        return 0;
    }
    Print(u"<br>Connecting to Firewall Manager...");
    const std::unique_ptr<FirewallProfile> pProfile = FirewallProfile::Create();
    record.profileFound = pProfile != nullptr;
    RegisterSelf(pProfile.get());
    bool bFailedPrinted = false;
    if (!pProfile)
    {
        if (g_systemProbes.IsWindowsXpSp2())
        {
            Print(kFailed);
            Print(kHintLine);
            bFailedPrinted = true;
            result = 3;
        }
        else
        {
            Print(kPassed);
        }
    }
    else
    {
        Print(kPassed);
        const tstring gamePath = GetGameImagePath();
        if (!pProfile->IsApplicationEnabled(gamePath.c_str()))
        {
            Print(kHintLine);
            result = 3;
        }
        Print(u"<br>Checking Windows Firewall opened...");
        if (IsFirewallOpenFor(gamePath.c_str()))
        {
            Print(kPassed);
        }
        else
        {
            Print(kFailed);
            bFailedPrinted = true;
        }
    }
    Print(u"<br>More information : <a href=\"%s\" target=_blank>click here</a>",
          g_settings.m_FirewallInfoUrl);
    record.passed = !bFailedPrinted;
    record.result = result;
    record.ran = true;
    com.Uninitialize();
    return result; // the profile is released here, after COM
}

void Inspector::RegisterGameWithFirewall()
{
    ComScope com(*this);
    if (!com.Ok())
        return;
    const std::unique_ptr<FirewallProfile> pProfile = FirewallProfile::Create();
    if (pProfile)
    {
        Print(u"<br>Register to Windows Firewall...");
        Print(RegisterGame(pProfile.get()) ? kPassed : kFailed);
    }
    com.Uninitialize();
}
