#include "FirewallCom_win32.h"

#include <windows.h>

// The firewall's GUIDs are defined here, not taken from a library.
#include <initguid.h>

#include <netfw.h>
#include <objbase.h>
#include <oleauto.h>

namespace firewall_com
{
namespace
{
// A BSTR of a wide C string, freed with the object.
class Bstr
{
public:
    explicit Bstr(const char16_t* text) : m_bstr(::SysAllocString(reinterpret_cast<const OLECHAR*>(text))) {}
    ~Bstr() { ::SysFreeString(m_bstr); }
    Bstr(const Bstr&) = delete;
    Bstr& operator=(const Bstr&) = delete;
    BSTR Get() const { return m_bstr; }
    bool IsEmpty() const { return ::SysStringLen(m_bstr) == 0; }

private:
    BSTR m_bstr;
};

// Releases an interface, when one was obtained, at the end of its scope.
template <typename T> class ComRef
{
public:
    ComRef() = default;
    ~ComRef()
    {
        if (m_p != nullptr)
            m_p->Release();
    }
    ComRef(const ComRef&) = delete;
    ComRef& operator=(const ComRef&) = delete;
    T** Out() { return &m_p; }
    void** OutVoid() { return reinterpret_cast<void**>(&m_p); }
    T* operator->() const { return m_p; }
    T* Get() const { return m_p; }
    T* Detach()
    {
        T* p = m_p;
        m_p = nullptr;
        return p;
    }

private:
    T* m_p = nullptr;
};

INetFwProfile* AsProfile(void* p)
{
    return static_cast<INetFwProfile*>(p);
}
} // namespace

std::int32_t Initialize()
{
    return ::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED | COINIT_DISABLE_OLE1DDE);
}

void Uninitialize()
{
    ::CoUninitialize();
}

tstring ModuleFileName()
{
    wchar_t buffer[MAX_PATH] = {};
    const DWORD length = ::GetModuleFileNameW(nullptr, buffer, MAX_PATH);
    return tstring(reinterpret_cast<const char16_t*>(buffer), length);
}

Profile* Profile::Open()
{
    ComRef<INetFwMgr> manager;
    if (FAILED(::CoCreateInstance(CLSID_NetFwMgr, nullptr, CLSCTX_INPROC_SERVER, IID_INetFwMgr,
                                  manager.OutVoid())))
        return nullptr;
    ComRef<INetFwPolicy> policy;
    if (FAILED(manager->get_LocalPolicy(policy.Out())))
        return nullptr;
    ComRef<INetFwProfile> profile;
    if (FAILED(policy->get_CurrentProfile(profile.Out())) || profile.Get() == nullptr)
        return nullptr;
    return new Profile(profile.Detach());
}

Profile::~Profile()
{
    AsProfile(m_pProfile)->Release();
}

bool Profile::IsApplicationEnabled(const char16_t* imagePath)
{
    ComRef<INetFwAuthorizedApplications> applications;
    if (FAILED(AsProfile(m_pProfile)->get_AuthorizedApplications(applications.Out())))
        return false;
    const Bstr path(imagePath);
    if (path.IsEmpty())
        return false;
    ComRef<INetFwAuthorizedApplication> application;
    if (FAILED(applications->Item(path.Get(), application.Out())))
        return false;
    VARIANT_BOOL enabled = VARIANT_FALSE;
    return SUCCEEDED(application->get_Enabled(&enabled)) && enabled != VARIANT_FALSE;
}

std::int32_t Profile::AddApplication(const char16_t* imagePath, const char16_t* name)
{
    ComRef<INetFwAuthorizedApplications> applications;
    HRESULT hr = AsProfile(m_pProfile)->get_AuthorizedApplications(applications.Out());
    if (FAILED(hr))
        return hr;
    ComRef<INetFwAuthorizedApplication> application;
    hr = ::CoCreateInstance(CLSID_NetFwAuthorizedApplication, nullptr, CLSCTX_INPROC_SERVER,
                            IID_INetFwAuthorizedApplication, application.OutVoid());
    if (FAILED(hr))
        return hr;
    const Bstr path(imagePath);
    if (path.IsEmpty())
        return E_OUTOFMEMORY;
    hr = application->put_ProcessImageFileName(path.Get());
    if (FAILED(hr))
        return hr;
    const Bstr entryName(name);
    if (entryName.IsEmpty())
        return E_OUTOFMEMORY;
    hr = application->put_Name(entryName.Get());
    if (FAILED(hr))
        return hr;
    return applications->Add(application.Get());
}

std::int32_t Profile::GetExceptionsNotAllowed(bool& bNotAllowed)
{
    VARIANT_BOOL notAllowed = VARIANT_FALSE;
    const HRESULT hr = AsProfile(m_pProfile)->get_ExceptionsNotAllowed(&notAllowed);
    if (SUCCEEDED(hr))
        bNotAllowed = notAllowed != VARIANT_FALSE;
    return hr;
}
} // namespace firewall_com
