#include <map>
#include <sstream>

#include <gtest/gtest.h>

#include "RigInspector/Firewall.h"
#include "RigInspector/SystemProbes.h"
#include "RigInspectorApp/AnalyzerSettings.h"
#include "tests/checks/FakeReportSink.h"

namespace
{
struct FakeFirewall
{
    std::map<tstring, bool> entries; // image path -> enabled
    HRESULT exceptionsResult = S_OK;
    bool exceptionsNotAllowed = false;
    HRESULT addResult = S_OK;
    std::vector<std::pair<tstring, tstring>> added;
};

class FakeProfileApi : public IFirewallProfileApi
{
public:
    explicit FakeProfileApi(FakeFirewall& firewall) : m_Firewall(firewall) {}
    bool IsApplicationEnabled(const char16_t* imagePath) override
    {
        const auto it = m_Firewall.entries.find(imagePath);
        return it != m_Firewall.entries.end() && it->second;
    }
    HRESULT AddApplication(const char16_t* imagePath, const char16_t* name) override
    {
        m_Firewall.added.emplace_back(imagePath, name);
        return m_Firewall.addResult;
    }
    HRESULT GetExceptionsNotAllowed(bool& bNotAllowed) override
    {
        bNotAllowed = m_Firewall.exceptionsNotAllowed;
        return m_Firewall.exceptionsResult;
    }

private:
    FakeFirewall& m_Firewall;
};

class FakePlatform : public IFirewallPlatform
{
public:
    HRESULT CoInitializeEx() override
    {
        ++m_Inits;
        return m_InitResult;
    }
    void CoUninitialize() override { ++m_Uninits; }
    std::unique_ptr<IFirewallProfileApi> OpenCurrentProfile() override
    {
        if (!m_bHasFirewall)
            return nullptr;
        return std::make_unique<FakeProfileApi>(m_Firewall);
    }
    tstring GetModuleFileName() override { return m_ModulePath; }

    HRESULT m_InitResult = S_OK;
    int m_Inits = 0;
    int m_Uninits = 0;
    bool m_bHasFirewall = true;
    FakeFirewall m_Firewall;
    tstring m_ModulePath = u"C:\\Games\\Dunmore\\Patcher\\FC.exe";
};

bool g_xpSp2 = false;
bool FakeXpSp2()
{
    return g_xpSp2;
}

const tstring kGamePath = u"c:\\games\\dunmore\\game\\DunmoreNine.exe";
const tstring kOwnPath = u"c:\\games\\dunmore\\patcher\\fc.exe";
const tstring kConnecting = u"<br>Connecting to Firewall Manager...";
const tstring kPassed = u"<font color=blue>passed.</font>";
const tstring kFailed = u"<font color=red>failed</font>";
const tstring kHint =
    u"<br>If you want to windows firewall off, you can click the '<font color=blue><b>Windows "
    u"Firewall off</b></font>' at left-bottom side.";
const tstring kOpened = u"<br>Checking Windows Firewall opened...";
const tstring kLink = u"<br>More information : <a href=\"http://fw.example\" target=_blank>click here</a>";

class FirewallTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_OldSettings = g_settings;
        g_settings.m_FirewallInfoUrl = u"http://fw.example";
        g_xpSp2 = false;
        g_systemProbes.IsWindowsXpSp2 = &FakeXpSp2;
        SetFirewallPlatform(&m_Platform);
        SetFirewallMessageStream(&m_Console);
    }
    void TearDown() override
    {
        SetFirewallMessageStream(nullptr);
        SetFirewallPlatform(nullptr);
        g_systemProbes = kRealSystemProbes;
        g_settings = m_OldSettings;
    }

    FakePlatform m_Platform;
    std::ostringstream m_Console;
    ScopedReportSink m_Sink;
    AnalyzerSettings m_OldSettings{std::string("/nonexistent/rig.ini")};
};

struct Row
{
    const char* what;
    bool hasFirewall;
    bool xpSp2;
    int gameEntry; // -1 missing, 0 disabled, 1 enabled
    bool exceptionsNotAllowed;
    std::vector<tstring> afterConnecting;
    int result;
    const char* console;
};

TEST_F(FirewallTest, ReportTable)
{
    const char* notEnabled =
        "Application is not enabled in the firewall. You will not be able host games or join a "
        "peer-to-peer game. Depending on the game, you may be able to join.\n";
    const char* noExceptions = "Firewall is on with no exceptions. You will not be able host games or join a "
                               "peer-to-peer game. Depending on the game, you may be able to join.\n";
    const Row rows[] = {
        {"no profile, XP SP2", false, true, -1, false, {kFailed, kHint, kLink}, 3, ""},
        {"no profile, other system", false, false, -1, false, {kPassed, kLink}, 0, ""},
        {"enabled, exceptions allowed", true, false, 1, false, {kPassed, kOpened, kPassed, kLink}, 0, ""},
        {"entry missing", true, false, -1, false, {kPassed, kHint, kOpened, kFailed, kLink}, 3, notEnabled},
        {"entry disabled", true, false, 0, false, {kPassed, kHint, kOpened, kFailed, kLink}, 3, notEnabled},
        {"exceptions not allowed", true, false, 1, true, {kPassed, kOpened, kFailed, kLink}, 0, noExceptions},
    };
    for (const Row& row : rows)
    {
        m_Sink.Fragments().clear();
        m_Console.str("");
        m_Platform.m_bHasFirewall = row.hasFirewall;
        g_xpSp2 = row.xpSp2;
        m_Platform.m_Firewall = FakeFirewall{};
        if (row.gameEntry >= 0)
            m_Platform.m_Firewall.entries[kGamePath] = row.gameEntry == 1;
        m_Platform.m_Firewall.exceptionsNotAllowed = row.exceptionsNotAllowed;

        EXPECT_EQ(g_inspector.CheckFirewall(), row.result) << row.what;
        std::vector<tstring> expected{kConnecting};
        expected.insert(expected.end(), row.afterConnecting.begin(), row.afterConnecting.end());
        EXPECT_EQ(m_Sink.Fragments(), expected) << row.what;
        EXPECT_EQ(m_Console.str(), row.console) << row.what;
        const FirewallResult& r = g_inspector.m_Results.firewall;
        EXPECT_TRUE(r.ran);
        EXPECT_EQ(r.result, row.result);
        EXPECT_EQ(r.profileFound, row.hasFirewall);
        EXPECT_EQ(r.passed, std::find(expected.begin(), expected.end(), kFailed) == expected.end())
            << row.what;
        // The analyzer's own entry is added whenever there is a profile, even when the check then fails.
        if (row.hasFirewall)
        {
            ASSERT_EQ(m_Platform.m_Firewall.added.size(), 1u) << row.what;
            EXPECT_EQ(m_Platform.m_Firewall.added[0].first, kOwnPath);
            EXPECT_EQ(m_Platform.m_Firewall.added[0].second, u"Dunmore Nine RigInspector");
        }
    }
}

TEST_F(FirewallTest, ComStartFailureIsOneLineAndNoButton)
{
    m_Platform.m_InitResult = E_FAIL;
    EXPECT_EQ(g_inspector.CheckFirewall(), 0);
    EXPECT_EQ(m_Sink.Fragments(), std::vector<tstring>{u"Failed to init COM: 0x80004005<br>"});
    EXPECT_EQ(m_Platform.m_Uninits, 0);
    EXPECT_TRUE(g_inspector.m_Results.firewall.comFailed);
    EXPECT_TRUE(m_Platform.m_Firewall.added.empty());

    m_Sink.Fragments().clear();
    g_inspector.RegisterGameWithFirewall();
    EXPECT_EQ(m_Sink.Fragments(), std::vector<tstring>{u"Failed to init COM: 0x80004005<br>"});
    EXPECT_TRUE(m_Platform.m_Firewall.added.empty());
}

TEST_F(FirewallTest, UninitialisesOnlyWhatItInitialised)
{
    m_Platform.m_bHasFirewall = false;
    m_Platform.m_InitResult = RPC_E_CHANGED_MODE; // COM runs in another mode: go on, leave it running
    EXPECT_EQ(g_inspector.CheckFirewall(), 0);
    EXPECT_EQ(m_Sink.Fragments().front(), kConnecting);
    EXPECT_EQ(m_Platform.m_Uninits, 0);

    m_Platform.m_InitResult = S_FALSE; // already initialised here: balance it
    g_inspector.CheckFirewall();
    EXPECT_EQ(m_Platform.m_Uninits, 1);
    g_inspector.RegisterGameWithFirewall();
    EXPECT_EQ(m_Platform.m_Uninits, 2);
}

TEST_F(FirewallTest, RegisterGameWithFirewall)
{
    m_Platform.m_bHasFirewall = false;
    g_inspector.RegisterGameWithFirewall();
    EXPECT_TRUE(m_Sink.Fragments().empty());

    m_Platform.m_bHasFirewall = true;
    g_inspector.RegisterGameWithFirewall();
    EXPECT_EQ(m_Sink.Fragments(), (std::vector<tstring>{u"<br>Register to Windows Firewall...", kPassed}));
    ASSERT_EQ(m_Platform.m_Firewall.added.size(), 1u);
    EXPECT_EQ(m_Platform.m_Firewall.added[0], std::make_pair(kGamePath, tstring(u"Dunmore Nine")));

    m_Sink.Fragments().clear();
    m_Platform.m_Firewall.addResult = static_cast<HRESULT>(0x80070005u); // access denied
    g_inspector.RegisterGameWithFirewall();
    EXPECT_EQ(m_Sink.Fragments(), (std::vector<tstring>{u"<br>Register to Windows Firewall...", kFailed}));
}

TEST_F(FirewallTest, EmptyPathsNeverReachTheFirewall)
{
    const std::unique_ptr<FirewallProfile> profile = FirewallProfile::Create();
    ASSERT_NE(profile, nullptr);
    m_Platform.m_Firewall.entries[u""] = true;
    EXPECT_FALSE(profile->IsApplicationEnabled(u""));
    EXPECT_EQ(profile->AddApplication(u"", u"x"), E_OUTOFMEMORY);
    EXPECT_EQ(profile->AddApplication(u"c:\\a.exe", u""), E_OUTOFMEMORY);
    EXPECT_TRUE(m_Platform.m_Firewall.added.empty());
    // A failing query of the flag counts as exceptions allowed.
    m_Platform.m_Firewall.entries[u"c:\\a.exe"] = true;
    m_Platform.m_Firewall.exceptionsNotAllowed = true;
    m_Platform.m_Firewall.exceptionsResult = E_FAIL;
    EXPECT_TRUE(IsFirewallOpenFor(u"c:\\a.exe"));
}

TEST(FirewallPaths, OwnAndGamePaths)
{
    EXPECT_EQ(OwnImagePathFrom(u"C:\\Program Files\\Demo\\Patcher\\FC.exe"),
              u"c:\\program files\\demo\\patcher\\fc.exe");
    EXPECT_EQ(GameImagePathFrom(u"C:\\Program Files\\Demo\\Patcher\\FC.exe"),
              u"c:\\program files\\demo\\game\\DunmoreNine.exe");
    EXPECT_EQ(GameImagePathFrom(u"c:\\mypatcher\\fc.exe"), u"c:\\mygame\\DunmoreNine.exe");
    EXPECT_EQ(GameImagePathFrom(u"C:\\Tools\\Inspector.exe"), u"c:\\tools\\inspector.exe");
    EXPECT_EQ(OwnImagePathFrom(u"/opt/Dunmore/patcher/fc.exe"), u"\\opt\\dunmore\\patcher\\fc.exe");
    EXPECT_EQ(GameImagePathFrom(u"/opt/Dunmore/patcher/fc.exe"), u"\\opt\\dunmore\\game\\DunmoreNine.exe");
    EXPECT_EQ(OwnImagePathFrom(u"C:\\" + tstring(300, u'A')), u"c:\\" + tstring(257, u'a'));
}

TEST(FirewallPosix, NoFirewallHere)
{
    EXPECT_EQ(FirewallProfile::Create(), nullptr);
    EXPECT_TRUE(IsFirewallOpenFor(u"c:\\x.exe"));
    EXPECT_FALSE(AddFirewallException(u"c:\\x.exe", u"x"));
    const tstring own = GetOwnImagePath();
    ASSERT_FALSE(own.empty());
    EXPECT_EQ(own.front(), u'\\');
    EXPECT_EQ(own.find(u'/'), tstring::npos);
}
} // namespace
