#include <map>
#include <sstream>
#include <utility>

#include <gtest/gtest.h>

#include "RigInspector/Firewall.h"
#include "RigInspector/SystemProbes.h"
#include "RigInspectorApp/AnalyzerSettings.h"
#include "tests/checks/FakeReportSink.h"

namespace
{
struct FakePlatform : IFirewallPlatform
{
    // The profile the firewall hands out: it reads and records on the platform.
    struct Profile : IFirewallProfileApi
    {
        explicit Profile(FakePlatform& f) : f(f) {}
        ~Profile() override { f.events.push_back("released"); }
        bool IsApplicationEnabled(const char16_t* imagePath) override { return f.entries[imagePath]; }
        HRESULT AddApplication(const char16_t* imagePath, const char16_t* name) override
        {
            f.added.emplace_back(imagePath, name);
            return f.addResult;
        }
        HRESULT GetExceptionsNotAllowed(bool& bNotAllowed) override
        {
            bNotAllowed = f.exceptionsNotAllowed;
            return f.flagResult;
        }
        FakePlatform& f;
    };

    HRESULT CoInitializeEx() override { return initResult; }
    void CoUninitialize() override
    {
        ++uninits;
        events.push_back("uninit");
    }
    std::unique_ptr<IFirewallProfileApi> OpenCurrentProfile() override
    {
        if (!hasProfile)
            return nullptr;
        events.push_back("opened");
        return std::make_unique<Profile>(*this);
    }
    tstring GetModuleFileName() override { return u"C:\\Games\\Dunmore\\Patcher\\FC.exe"; }

    HRESULT initResult = S_OK;
    int uninits = 0;
    bool hasProfile = true;
    std::map<tstring, bool> entries; // image path -> enabled
    bool exceptionsNotAllowed = false;
    HRESULT flagResult = S_OK;
    HRESULT addResult = S_OK;
    std::vector<std::pair<tstring, tstring>> added;
    std::vector<std::string> events; // profiles opened and released, COM uninitialised
};

bool g_xpSp2 = false;

const tstring kGamePath = u"c:\\games\\dunmore\\game\\DunmoreNine.exe";
const tstring kConnecting = u"<br>Connecting to Firewall Manager...";
const tstring kRegistering = u"<br>Register to Windows Firewall...";
const tstring kPassed = u"<font color=blue>passed.</font>";
const tstring kFailed = u"<font color=red>failed</font>";
const tstring kHint =
    u"<br>If you want to windows firewall off, you can click the '<font color=blue><b>Windows "
    u"Firewall off</b></font>' at left-bottom side.";
const tstring kOpened = u"<br>Checking Windows Firewall opened...";
const tstring kLink = u"<br>More information : <a href=\"http://fw.example\" target=_blank>click here</a>";
const tstring kComFailed = u"Failed to init COM: 0x80004005<br>";

class FirewallTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        g_settings.m_FirewallInfoUrl = u"http://fw.example";
        g_xpSp2 = false;
        g_systemProbes.IsWindowsXpSp2 = [] { return g_xpSp2; };
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
    std::vector<tstring> Take() { return std::exchange(m_Sink.Fragments(), {}); }

    FakePlatform m_Platform;
    std::ostringstream m_Console;
    ScopedReportSink m_Sink;
    AnalyzerSettings m_OldSettings = g_settings;
};

struct Row
{
    bool hasProfile;
    bool xpSp2;
    bool gameEnabled; // missing and disabled read alike through the profile
    bool exceptionsNotAllowed;
    HRESULT flagResult;
    std::vector<tstring> afterConnecting;
    int result;
    std::string console;
};

TEST_F(FirewallTest, ReportTable)
{
    const std::string notEnabled =
        "Application is not enabled in the firewall. You will not be able host games or join a "
        "peer-to-peer game. Depending on the game, you may be able to join.\n";
    const std::string noExceptions =
        "Firewall is on with no exceptions. You will not be able host games or "
        "join a peer-to-peer game. Depending on the game, you may be able to join.\n";
    const Row rows[] = {
        {false, true, false, false, S_OK, {kFailed, kHint, kLink}, 3, ""},
        {false, false, false, false, S_OK, {kPassed, kLink}, 0, ""},
        {true, false, true, false, S_OK, {kPassed, kOpened, kPassed, kLink}, 0, ""},
        {true, false, false, false, S_OK, {kPassed, kHint, kOpened, kFailed, kLink}, 3, notEnabled},
        {true, false, true, true, S_OK, {kPassed, kOpened, kFailed, kLink}, 0, noExceptions},
        {true, false, true, true, E_FAIL, {kPassed, kOpened, kPassed, kLink}, 0, ""}, // a failing query:
                                                                                      // allowed
    };
    for (const Row& row : rows)
    {
        m_Platform = FakePlatform{};
        m_Platform.hasProfile = row.hasProfile;
        m_Platform.entries[kGamePath] = row.gameEnabled;
        m_Platform.exceptionsNotAllowed = row.exceptionsNotAllowed;
        m_Platform.flagResult = row.flagResult;
        g_xpSp2 = row.xpSp2;
        m_Console.str("");
        const std::size_t i = &row - rows;

        EXPECT_EQ(g_inspector.CheckFirewall(), row.result) << i;
        std::vector<tstring> expected{kConnecting};
        expected.insert(expected.end(), row.afterConnecting.begin(), row.afterConnecting.end());
        EXPECT_EQ(Take(), expected) << i;
        EXPECT_EQ(m_Console.str(), row.console) << i;
        const FirewallResult& r = g_inspector.m_Results.firewall;
        EXPECT_TRUE(r.ran && !r.comFailed);
        EXPECT_EQ(r.result, row.result);
        EXPECT_EQ(r.profileFound, row.hasProfile);
        EXPECT_EQ(r.passed, std::find(expected.begin(), expected.end(), kFailed) == expected.end()) << i;
        // The analyzer's own entry is added whenever there is a profile, even when the check then fails.
        const std::vector<std::pair<tstring, tstring>> own{
            {u"c:\\games\\dunmore\\patcher\\fc.exe", u"Dunmore Nine RigInspector"}};
        EXPECT_EQ(m_Platform.added, row.hasProfile ? own : decltype(own){}) << i;
    }
}

TEST_F(FirewallTest, ComStartAndItsBalance)
{
    // A failure is one line and no button; nothing else happens and nothing is uninitialised.
    m_Platform.initResult = E_FAIL;
    EXPECT_EQ(g_inspector.CheckFirewall(), 0);
    EXPECT_EQ(Take(), std::vector<tstring>{kComFailed});
    EXPECT_TRUE(g_inspector.m_Results.firewall.comFailed);
    g_inspector.RegisterGameWithFirewall();
    EXPECT_EQ(Take(), std::vector<tstring>{kComFailed});
    EXPECT_TRUE(m_Platform.added.empty());
    EXPECT_EQ(m_Platform.uninits, 0);

    m_Platform.hasProfile = false;
    m_Platform.initResult = RPC_E_CHANGED_MODE; // COM runs in another mode: go on, leave it running
    g_inspector.CheckFirewall();
    EXPECT_EQ(Take().front(), kConnecting);
    EXPECT_EQ(m_Platform.uninits, 0);
    m_Platform.initResult = S_FALSE; // already initialised on this thread: balance it
    g_inspector.CheckFirewall();
    EXPECT_EQ(m_Platform.uninits, 1);
    g_inspector.RegisterGameWithFirewall();
    EXPECT_EQ(m_Platform.uninits, 2);
}

// Each operation uninitialises COM while its own profile still lives and
// releases it after; the profiles the helpers open come and go before.
TEST_F(FirewallTest, ComIsUninitialisedBeforeTheProfileIsReleased)
{
    g_inspector.CheckFirewall();
    EXPECT_EQ(m_Platform.events, (std::vector<std::string>{"opened", "opened", "released", "opened",
                                                           "released", "uninit", "released"}));
    m_Platform.events.clear();
    g_inspector.RegisterGameWithFirewall();
    EXPECT_EQ(m_Platform.events,
              (std::vector<std::string>{"opened", "opened", "released", "uninit", "released"}));
    Take();
}

TEST_F(FirewallTest, RegisterGameWithFirewall)
{
    m_Platform.hasProfile = false;
    g_inspector.RegisterGameWithFirewall();
    EXPECT_TRUE(Take().empty());

    m_Platform.hasProfile = true;
    g_inspector.RegisterGameWithFirewall();
    EXPECT_EQ(Take(), (std::vector<tstring>{kRegistering, kPassed}));
    EXPECT_EQ(m_Platform.added, (std::vector<std::pair<tstring, tstring>>{{kGamePath, u"Dunmore Nine"}}));

    m_Platform.addResult = static_cast<HRESULT>(0x80070005u); // access denied
    g_inspector.RegisterGameWithFirewall();
    EXPECT_EQ(Take(), (std::vector<tstring>{kRegistering, kFailed}));
}

// The plain paths are the checks' above; these are the edges.
TEST(FirewallPaths, OwnAndGamePaths)
{
    EXPECT_EQ(GameImagePathFrom(u"c:\\mypatcher\\fc.exe"), u"c:\\mygame\\DunmoreNine.exe");
    EXPECT_EQ(GameImagePathFrom(u"C:\\Tools\\Inspector.exe"), u"c:\\tools\\inspector.exe");
    EXPECT_EQ(GameImagePathFrom(u"/opt/Dunmore/patcher/fc.exe"), u"\\opt\\dunmore\\game\\DunmoreNine.exe");
    EXPECT_EQ(OwnImagePathFrom(u"C:\\" + tstring(300, u'A')), u"c:\\" + tstring(257, u'a'));
}
} // namespace
