// The options file updated on Windows as a player's run updates it: from
// patcher\ as the working folder, through "../game/option.ini". An existing
// file keeps its line ends and its other sections; a read-only file, a file
// another process holds open and a path that cannot exist each end cleanly:
// the file is whole, old or new as the result says, and no temporary file
// stays beside it. A folder that takes no new file is shown by the
// command-line test (cli_accept.sh), which can mount one.
#include <windows.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "RigInspectorApp/IniFile.h"
#include "tests/settings/TempDir.h"

namespace
{
const std::vector<std::pair<tstring, tstring>> kFourKeys = {
    {u"shadow", u"1"}, {u"audience", u"1"}, {u"event_screen", u"0"}, {u"char_lod", u"1"}};

std::vector<std::string> Listing(const std::string& dir)
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(dir))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

std::string Text(const tstring& text)
{
    return std::string(text.begin(), text.end());
}

/// patcher\ and game\ side by side, with patcher\ the working folder while
/// the object lives, as the patcher starts the tool.
class GameFolders : public ::testing::Test
{
protected:
    void SetUp() override
    {
        std::filesystem::create_directories(m_Dir.File("patcher"));
        std::filesystem::create_directories(m_Dir.File("game"));
        m_Before = std::filesystem::current_path();
        std::filesystem::current_path(m_Dir.File("patcher"));
    }
    void TearDown() override
    {
        std::filesystem::current_path(m_Before);
        ::SetFileAttributesW(Wide(m_Option).c_str(), FILE_ATTRIBUTE_NORMAL);
    }
    static std::wstring Wide(const std::string& path) { return std::filesystem::path(path).wstring(); }
    bool Accept(tstring& why)
    {
        return WritePrivateProfileStrings(u"video", kFourKeys, "../game/option.ini", &why);
    }

    TempDir m_Dir;
    std::string m_Option = m_Dir.File("game/option.ini");
    std::filesystem::path m_Before;
};

/// Holds a file open from another process (file_holder.exe, built beside
/// this test) until it is destroyed.
class Holder
{
public:
    Holder(const std::wstring& path, const wchar_t* access, const wchar_t* share)
    {
        static int s_Count = 0;
        const std::wstring tag = std::to_wstring(::GetCurrentProcessId()) + L"_" + std::to_wstring(++s_Count);
        const std::wstring readyName = L"rig_holder_ready_" + tag;
        const std::wstring releaseName = L"rig_holder_release_" + tag;
        m_Ready = ::CreateEventW(nullptr, TRUE, FALSE, readyName.c_str());
        m_Release = ::CreateEventW(nullptr, TRUE, FALSE, releaseName.c_str());
        wchar_t self[MAX_PATH] = {};
        ::GetModuleFileNameW(nullptr, self, MAX_PATH);
        const std::wstring exe = std::filesystem::path(self).replace_filename(L"file_holder.exe").wstring();
        std::wstring command = L"\"" + exe + L"\" \"" + path + L"\" " + access + L" " + share + L" " +
                               readyName + L" " + releaseName;
        STARTUPINFOW startup{};
        startup.cb = sizeof startup;
        PROCESS_INFORMATION process{};
        if (::CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                             &process))
        {
            ::CloseHandle(process.hThread);
            m_Process = process.hProcess;
            // Open once ready is set and the process is still there.
            m_bHeld = ::WaitForSingleObject(m_Ready, 20000) == WAIT_OBJECT_0 &&
                      ::WaitForSingleObject(m_Process, 0) == WAIT_TIMEOUT;
        }
    }
    ~Holder()
    {
        ::SetEvent(m_Release);
        if (m_Process != nullptr)
        {
            ::WaitForSingleObject(m_Process, 20000);
            ::CloseHandle(m_Process);
        }
        ::CloseHandle(m_Ready);
        ::CloseHandle(m_Release);
    }
    Holder(const Holder&) = delete;
    Holder& operator=(const Holder&) = delete;
    bool IsHolding() const { return m_bHeld; }

private:
    HANDLE m_Ready = nullptr;
    HANDLE m_Release = nullptr;
    HANDLE m_Process = nullptr;
    bool m_bHeld = false;
};

// CRLF and LF files get the four keys in their own line end, the sections
// before and after [video] kept byte for byte; a missing file is created in
// CRLF. A killed run's temporary is removed; a look-alike is not.
TEST_F(GameFolders, AnExistingFileGetsTheFourKeysInItsOwnLineEnds)
{
    const struct
    {
        const char* name;
        std::string before, after;
    } cases[] = {
        {"CRLF", "[audio]\r\nvolume=7\r\n[video]\r\nshadow=0\r\nchar_lod=0\r\n\r\n[net]\r\nport=9\r\n",
         "[audio]\r\nvolume=7\r\n[video]\r\nshadow=1\r\nchar_lod=1\r\naudience=1\r\nevent_screen=0\r\n\r\n"
         "[net]\r\nport=9\r\n"},
        {"LF", "[audio]\nvolume=7\n[video]\nshadow=0\nchar_lod=0\n\n[net]\nport=9\n",
         "[audio]\nvolume=7\n[video]\nshadow=1\nchar_lod=1\naudience=1\nevent_screen=0\n\n[net]\nport=9\n"},
        {"missing", "", "[video]\r\nshadow=1\r\naudience=1\r\nevent_screen=0\r\nchar_lod=1\r\n"},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.name);
        std::filesystem::remove(m_Option);
        if (!c.before.empty())
            TempDir::Write(m_Option, c.before);
        TempDir::Write(m_Dir.File("game/.option.ini.rigtmp.k1ll3d"), "[video]\r\nsha");
        TempDir::Write(m_Dir.File("game/.option.ini.rigtmp.notours"), "theirs");
        tstring why;
        ASSERT_TRUE(Accept(why)) << Text(why);
        EXPECT_EQ(TempDir::Read(m_Option), c.after);
        EXPECT_EQ(Listing(m_Dir.File("game")),
                  (std::vector<std::string>{".option.ini.rigtmp.notours", "option.ini"}));
    }
}

// Each refusal names its reason and leaves the file as it was.
TEST_F(GameFolders, RefusedWritesLeaveTheFileAndNoTemporary)
{
    const std::string before = "[video]\r\nshadow=0\r\n";
    TempDir::Write(m_Option, before);
    ASSERT_TRUE(::SetFileAttributesW(Wide(m_Option).c_str(), FILE_ATTRIBUTE_READONLY));
    tstring why;
    EXPECT_FALSE(Accept(why));
    EXPECT_EQ(why, u"it is read-only");
    EXPECT_EQ(TempDir::Read(m_Option), before);
    EXPECT_EQ(Listing(m_Dir.File("game")), std::vector<std::string>{"option.ini"});

    // A game folder that is not there is not made.
    EXPECT_FALSE(WritePrivateProfileStrings(u"video", kFourKeys, "../nogame/option.ini", &why));
    EXPECT_FALSE(why.empty());
    EXPECT_FALSE(std::filesystem::exists(m_Dir.File("nogame")));
}

// Another process has the file open. Its sharing decides, and each way is
// clean: with delete sharing the file is replaced; with write sharing but no
// delete it is rewritten in place (the holder only reads); a holder that
// writes, or shares reading only, makes it a failure with the file untouched.
TEST_F(GameFolders, AFileHeldOpenIsReplacedRewrittenOrLeftWhole)
{
    const std::string before = "[audio]\r\nvolume=7\r\n[video]\r\nshadow=0\r\n";
    const std::string after =
        "[audio]\r\nvolume=7\r\n[video]\r\nshadow=1\r\naudience=1\r\nevent_screen=0\r\nchar_lod=1\r\n";
    const struct
    {
        const wchar_t* access;
        const wchar_t* share;
        bool bWritten;
    } cases[] = {
        {L"r", L"rwd", true},
        {L"r", L"rw", true},
        {L"rw", L"rw", false},
        {L"r", L"r", false},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(Text(tstring(reinterpret_cast<const char16_t*>(c.access))) + " shared " +
                     Text(tstring(reinterpret_cast<const char16_t*>(c.share))));
        TempDir::Write(m_Option, before);
        tstring why;
        bool bWritten = false;
        {
            const Holder holder(Wide(m_Option), c.access, c.share);
            ASSERT_TRUE(holder.IsHolding());
            bWritten = Accept(why);
        }
        EXPECT_EQ(bWritten, c.bWritten) << Text(why);
        EXPECT_EQ(TempDir::Read(m_Option), bWritten ? after : before);
        if (!bWritten)
        {
            EXPECT_FALSE(why.empty());
        }
        EXPECT_EQ(Listing(m_Dir.File("game")), std::vector<std::string>{"option.ini"});
    }
}
} // namespace
