// The firewall layer on Wine's own HNetCfg.FwMgr: the whole COM path runs
// (manager, policy, profile, collection, new entries, BSTRs), and Wine's
// stubs drive the error paths a real firewall seldom takes: nothing added is
// stored, so every entry reads as disabled, and ExceptionsNotAllowed is not
// implemented (E_NOTIMPL).
#include <sstream>

#include <gtest/gtest.h>

#include "RigInspector/Firewall.h"

namespace
{
constexpr HRESULT kNotImplemented = static_cast<HRESULT>(0x80004001u);

TEST(FirewallOnWine, ComObjectsAnswerAndTheirStubsFailAsTheyShould)
{
    IFirewallPlatform& platform = GetRealFirewallPlatform();
    const HRESULT init = platform.CoInitializeEx();
    ASSERT_TRUE(Succeeded(init));
    EXPECT_EQ(platform.CoInitializeEx(), S_FALSE) << "a second start on the same thread";
    platform.CoUninitialize();
    {
        const std::unique_ptr<IFirewallProfileApi> profile = platform.OpenCurrentProfile();
        ASSERT_NE(profile, nullptr);
        EXPECT_EQ(profile->AddApplication(u"c:\\games\\dunmore\\game\\DunmoreNine.exe", u"Dunmore Nine"),
                  S_OK);
        EXPECT_EQ(profile->AddApplication(u"", u"Dunmore Nine"), E_OUTOFMEMORY);
        EXPECT_EQ(profile->AddApplication(u"c:\\x.exe", u""), E_OUTOFMEMORY);
        EXPECT_FALSE(profile->IsApplicationEnabled(u"c:\\games\\dunmore\\game\\DunmoreNine.exe"));
        EXPECT_FALSE(profile->IsApplicationEnabled(u""));
        bool bNotAllowed = true;
        EXPECT_EQ(profile->GetExceptionsNotAllowed(bNotAllowed), kNotImplemented);
        EXPECT_TRUE(bNotAllowed) << "left alone when the call fails";
    }
    // The module path is the test program's own, as GetModuleFileNameW gives it.
    const tstring own = GetOwnImagePath();
    EXPECT_NE(own.find(u"firewall_com_test.exe"), tstring::npos);
    EXPECT_EQ(own.find(u'/'), tstring::npos);

    // The free functions open profiles of their own; a disabled entry closes
    // the firewall for the program and says so on the given stream.
    std::ostringstream said;
    SetFirewallMessageStream(&said);
    EXPECT_TRUE(AddFirewallException(own.c_str(), u"Dunmore Nine RigInspector"));
    EXPECT_FALSE(IsFirewallOpenFor(own.c_str()));
    SetFirewallMessageStream(nullptr);
    EXPECT_EQ(said.str().rfind("Application is not enabled in the firewall.", 0), 0u) << said.str();
    platform.CoUninitialize();
}
} // namespace
