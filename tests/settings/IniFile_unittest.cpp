#include <sys/stat.h>
#include <sys/wait.h>

#include <csignal>
#include <unistd.h>

#include <filesystem>

#include <gtest/gtest.h>

#include "RigInspectorApp/IniFile.h"
#include "tests/settings/TempDir.h"

namespace
{
/// A literal's bytes, zeros included.
template <std::size_t N> std::string Bytes(const char (&text)[N])
{
    return std::string(text, N - 1);
}

std::ptrdiff_t EntriesIn(const std::string& dir)
{
    return std::distance(std::filesystem::directory_iterator(dir), std::filesystem::directory_iterator());
}

class IniTest : public ::testing::Test
{
protected:
    tstring Read(const std::string& content)
    {
        TempDir::Write(m_Path, content);
        return GetPrivateProfileString(u"s", u"k", u"DEFAULT", m_Path);
    }
    bool Write(const char16_t* section, const char16_t* key, const char16_t* value)
    {
        return WritePrivateProfileString(section, key, value, m_Path);
    }

    TempDir m_Dir;
    std::string m_Path = m_Dir.File("option.ini");
};

TEST_F(IniTest, ReaderRules)
{
    const std::pair<std::string, tstring> cases[] = {
        {"[s]\nk=10.0.0.1\n", u"10.0.0.1"},
        {"[t]\nk=1\n", u"DEFAULT"},                           // missing section
        {"[s]\nj=1\n", u"DEFAULT"},                           // missing key
        {"[s]\nk=\n", u""},                                   // present and empty is not the default
        {"[S]\nK=x\n", u"x"},                                 // names ignore case
        {"  [ s ]  \n\t k \t=  a b \t\n", u"a b"},            // blanks around names and values
        {"[s]\r\nk=http://h/\r\n", u"http://h/"},             // CRLF never leaves a CR
        {"[s]\rk=http://h/\rnext=1", u"http://h/"},           // a lone CR ends a line
        {"[s]\nk=http://h/\r", u"http://h/"},                 // CR at the end of the file
        {"[s]\n;k=1\n# k=2\nk=3\n", u"3"},                    // comment lines
        {"[s]\nk=http://h/a;b#frag\n", u"http://h/a;b#frag"}, // no comment after a value
        {"[s]\nk=\"  x \"\n", u"  x "},                       // matching quotes are removed
        {"[s]\nk='y'\n", u"y"},
        {"[s]\nk=\"y'\n", u"\"y'"},               // unmatched quotes stay
        {"[s]\nk=1\nk=2\n", u"1"},                // the first duplicate key wins
        {"[s]\na=1\n[t]\nk=9\n[S]\nk=2\n", u"2"}, // duplicate sections are one
        {"k=1\n[s]\n", u"DEFAULT"},               // keys before any section are never found
        {"[s\nk=1\n", u"DEFAULT"},                // a header without its bracket is no section
        {"[s]\nk=a=b\n", u"a=b"},                 // the first '=' splits
        {"\xEF\xBB\xBF[s]\nk=1\n", u"1"},         // UTF-8 byte-order mark
        {"[s]\nk=caf\xC3\xA9 \xF0\x9F\x98\x80\n", u"caf\u00E9 \U0001F600"},
        {Bytes("\xFF\xFE[\0s\0]\0\n\0k\0=\0\xE9\0\r\0\n\0"), u"\u00E9"}, // UTF-16LE with its mark
        {Bytes("\xFE\xFF\0[\0s\0]\0\n\0k\0=\0z"), u"z"},                 // UTF-16BE with its mark
    };
    for (const auto& [content, expected] : cases)
        EXPECT_EQ(Read(content), expected) << content;

    EXPECT_EQ(GetPrivateProfileString(u"s", u"k", u"d", m_Dir.File("none.ini")), u"d");
    EXPECT_EQ(GetPrivateProfileString(u"s", u"k", u"d", m_Dir.Path()), u"d"); // a folder is no file
    // The number is the value as read, through Wtoi; an empty value is a
    // missing one, as the system's profile functions have it.
    EXPECT_EQ(Read("[s]\nk=\n"), u"");
    EXPECT_EQ(GetPrivateProfileInt(u"s", u"k", -77, m_Path), -77);
}

TEST_F(IniTest, ValuesAreCutAt511WithoutSplittingAPair)
{
    EXPECT_EQ(Read("[s]\nk=" + std::string(600, 'x') + "\n"), tstring(511, u'x'));
    // An emoji whose first half would be character 511 is dropped whole.
    EXPECT_EQ(Read("[s]\nk=" + std::string(510, 'x') + "\xF0\x9F\x98\x80yy\n"), tstring(510, u'x'));
    EXPECT_EQ(GetPrivateProfileString(u"s", u"none", tstring(600, u'd'), m_Path).size(), 511u);
}

struct WriteCase
{
    std::string before; // empty: no file
    const char16_t* section;
    const char16_t* key;
    std::string after; // once the value "1" is written
};

TEST_F(IniTest, EditsKeepEveryOtherByte)
{
    const WriteCase cases[] = {
        {"", u"v", u"k", "[v]\r\nk=1\r\n"},
        {"; options\n[V]\nK = 0 \nj=1\n", u"v", u"k", "; options\n[V]\nK = 1\nj=1\n"},
        {"[a]\r\nx=1\r\n[v]\r\nk=0", u"v", u"k", "[a]\r\nx=1\r\n[v]\r\nk=1"},
        {"[v]\nk=0\n\n[w]\nk=0\n", u"V", u"j",
         "[v]\nk=0\nj=1\n\n[w]\nk=0\n"}, // after the section's last line
        {"[v]\r\nk=0", u"v", u"j", "[v]\r\nk=0\r\nj=1\r\n"},
        {"[a]\nx=1", u"v", u"k", "[a]\nx=1\n[v]\nk=1\n"},                       // in the file's line end
        {"[v]\nk=0\n[w]\n[V]\nk=2\n", u"v", u"k", "[v]\nk=1\n[w]\n[V]\nk=2\n"}, // the one the reader reads
        {"\xEF\xBB\xBF[v]\nbad=\xFF\xFE\nk=0\n", u"v", u"k", "\xEF\xBB\xBF[v]\nbad=\xFF\xFE\nk=1\n"},
        {Bytes("\xFF\xFE[\0v\0]\0\n\0k\0=\0"
               "0\0"),
         u"v", u"k",
         Bytes("\xFF\xFE[\0v\0]\0\n\0k\0=\0"
               "1\0")},
    };
    for (const WriteCase& c : cases)
    {
        std::filesystem::remove(m_Path);
        if (!c.before.empty())
            TempDir::Write(m_Path, c.before);
        EXPECT_TRUE(Write(c.section, c.key, u"1")) << c.before;
        EXPECT_EQ(TempDir::Read(m_Path), c.after);
        EXPECT_EQ(EntriesIn(m_Dir.Path()), 1) << c.before << ": a temporary file was left behind";
    }
}

TEST_F(IniTest, RefusesTextThatWouldBreakTheFileAndMissingFolders)
{
    TempDir::Write(m_Path, "[v]\nk=0\n");
    EXPECT_FALSE(Write(u"v", u"k", u"1\r\n[evil]"));
    EXPECT_FALSE(Write(u"v]", u"k", u"1"));
    EXPECT_FALSE(Write(u"v", u"k=", u"1"));
    EXPECT_FALSE(Write(u"", u"k", u"1"));
    EXPECT_EQ(TempDir::Read(m_Path), "[v]\nk=0\n");
    EXPECT_FALSE(WritePrivateProfileString(u"v", u"k", u"1", m_Dir.File("game/option.ini")));
}

TEST_F(IniTest, KeepsTheFileModeAndFollowsSymbolicLinks)
{
    TempDir::Write(m_Path, "[v]\nk=0\n");
    ASSERT_EQ(::chmod(m_Path.c_str(), 0640), 0);
    const std::string link = m_Dir.File("link.ini");
    ASSERT_EQ(::symlink("option.ini", link.c_str()), 0);
    ASSERT_TRUE(WritePrivateProfileString(u"v", u"k", u"1", link));
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_EQ(TempDir::Read(m_Path), "[v]\nk=1\n");
    struct stat st
    {
    };
    ASSERT_EQ(::stat(m_Path.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0640u);
    // The owner too, where the writer may set it (root giving the file back).
    if (::geteuid() == 0)
    {
        ASSERT_EQ(::chown(m_Path.c_str(), 65534, 65534), 0);
        ASSERT_TRUE(WritePrivateProfileString(u"v", u"k", u"2", m_Path));
        ASSERT_EQ(::stat(m_Path.c_str(), &st), 0);
        EXPECT_EQ(st.st_uid, 65534u);
        EXPECT_EQ(st.st_gid, 65534u);
    }

    // A new file gets what a plain creation gives: 0666 less the umask.
    const std::string fresh = m_Dir.File("new.ini");
    const mode_t old = ::umask(022);
    ASSERT_TRUE(WritePrivateProfileString(u"v", u"k", u"1", fresh));
    ::umask(old);
    ASSERT_EQ(::stat(fresh.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0644u);

    const std::string dangling = m_Dir.File("dangling.ini");
    ASSERT_EQ(::symlink("nowhere/x.ini", dangling.c_str()), 0);
    EXPECT_FALSE(WritePrivateProfileString(u"v", u"k", u"1", dangling));
}

// A file of several hundred KiB is read; past the 16 MiB bound, and for a FIFO,
// a device or a folder in the file's place, reads give the default and writes
// fail at once (a FIFO without a writer would block a plain open for ever),
// each with its reason.
TEST_F(IniTest, LargeFilesAreReadAndSpecialFilesRefusedAtOnce)
{
    EXPECT_EQ(Read(std::string(300 * 1024, ';') + "\n[s]\nk=found\n"), u"found");
    EXPECT_EQ(DescribeUnreadableProfile(m_Path), u"");
    EXPECT_EQ(Read("[s]\nk=v\n" + std::string(16 * 1024 * 1024, ';')), u"DEFAULT");
    EXPECT_EQ(DescribeUnreadableProfile(m_Path), u"it is larger than 16 MiB");

    const std::string fifo = m_Dir.File("fifo.ini");
    const std::string folder = m_Dir.File("folder.ini");
    const std::string device = m_Dir.File("device.ini");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0644), 0);
    ASSERT_EQ(::mkdir(folder.c_str(), 0755), 0);
    ASSERT_EQ(::symlink("/dev/null", device.c_str()), 0);
    const std::pair<std::string, tstring> cases[] = {{fifo, u"it is a named pipe, not a file"},
                                                     {folder, u"it is a directory, not a file"},
                                                     {device, u"it is a device, not a file"}};
    for (const auto& [path, why] : cases)
    {
        EXPECT_EQ(GetPrivateProfileString(u"s", u"k", u"DEFAULT", path), u"DEFAULT") << path;
        EXPECT_EQ(DescribeUnreadableProfile(path), why);
        tstring writeWhy;
        EXPECT_FALSE(WritePrivateProfileStrings(u"s", {{u"k", u"1"}}, path, &writeWhy));
        EXPECT_EQ(writeWhy, why);
    }
    EXPECT_EQ(EntriesIn(m_Dir.Path()), 4);
}

// The four options are one write: a process killed at any moment leaves all
// of them old or all new, and one told to end (SIGTERM, SIGINT) leaves no
// temporary file behind.
TEST_F(IniTest, KeysWrittenAsOneUnitSurviveAKillAtAnyMoment)
{
    TempDir::Write(m_Path, "[video]\nshadow=0\naudience=0\nevent_screen=0\nchar_lod=0\n[audio]\nvolume=7\n");
    for (int round = 0; round < 12; ++round)
    {
        const pid_t pid = ::fork();
        ASSERT_GE(pid, 0);
        if (pid == 0)
        {
            for (int n = 0; n < 100000; ++n)
            {
                const char16_t* v = n % 2 == 0 ? u"1" : u"0";
                WritePrivateProfileStrings(
                    u"video", {{u"shadow", v}, {u"audience", v}, {u"event_screen", v}, {u"char_lod", v}},
                    m_Path);
            }
            ::_exit(0);
        }
        ::usleep(static_cast<useconds_t>(2000 + round * 1500));
        const int signal = round % 3 == 0 ? SIGKILL : round % 3 == 1 ? SIGTERM : SIGINT;
        ASSERT_EQ(::kill(pid, signal), 0);
        int status = 0;
        ASSERT_EQ(::waitpid(pid, &status, 0), pid);
        EXPECT_TRUE(WIFSIGNALED(status)) << status;

        const tstring values[] = {GetPrivateProfileString(u"video", u"shadow", u"?", m_Path),
                                  GetPrivateProfileString(u"video", u"audience", u"?", m_Path),
                                  GetPrivateProfileString(u"video", u"event_screen", u"?", m_Path),
                                  GetPrivateProfileString(u"video", u"char_lod", u"?", m_Path)};
        for (const tstring& value : values)
            EXPECT_EQ(value, values[0]) << round;
        EXPECT_EQ(GetPrivateProfileString(u"audio", u"volume", u"?", m_Path), u"7");
        // A kill no process can catch may leave a temporary file; the polite
        // ones never do, and the next write removes what the others left.
        if (signal != SIGKILL)
        {
            EXPECT_EQ(EntriesIn(m_Dir.Path()), 1) << round;
        }
        ASSERT_TRUE(Write(u"audio", u"volume", u"7"));
        EXPECT_EQ(EntriesIn(m_Dir.Path()), 1) << round;
    }
}

// As the patcher starts the tool: game/ beside the working folder, an
// option.ini already there with other sections, and what a killed run left.
// Only names that are a write's temporaries of this very file are removed.
TEST_F(IniTest, UpdatesAnExistingFileFromARelativePathAndRemovesOnlyOurLeftovers)
{
    std::filesystem::create_directories(m_Dir.File("patcher"));
    std::filesystem::create_directories(m_Dir.File("game"));
    const std::string option = m_Dir.File("game/option.ini");
    TempDir::Write(option, "[audio]\r\nvolume=7\r\n[video]\r\nshadow=0\r\n");
    const std::string leftover = m_Dir.File("game/.option.ini.rigtmp.a1B2c3");
    const std::string decoys[] = {"game/.option.ini.rigtmp.a1B2c",    "game/.option.ini.rigtmp.a1B2c3d",
                                  "game/.settings.ini.rigtmp.a1B2c3", "game/option.ini.rigtmp.a1B2c3",
                                  "game/.option.ini.rigtmp.a1-2c3",   "game/.option.ini.XXXXXX.a1B2c3"};
    TempDir::Write(leftover, "[video]\r\nsha");
    for (const std::string& decoy : decoys)
        TempDir::Write(m_Dir.File(decoy), "theirs");
    std::filesystem::create_directory(m_Dir.File("game/.option.ini.rigtmp.folder"));

    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(m_Dir.File("patcher"));
    tstring why;
    const bool bWritten = WritePrivateProfileStrings(u"video", {{u"shadow", u"1"}, {u"char_lod", u"1"}},
                                                     "../game/option.ini", &why);
    std::filesystem::current_path(before);

    ASSERT_TRUE(bWritten) << std::string(why.begin(), why.end());
    EXPECT_EQ(TempDir::Read(option), "[audio]\r\nvolume=7\r\n[video]\r\nshadow=1\r\nchar_lod=1\r\n");
    EXPECT_FALSE(std::filesystem::exists(leftover));
    for (const std::string& decoy : decoys)
        EXPECT_EQ(TempDir::Read(m_Dir.File(decoy)), "theirs") << decoy;
    EXPECT_EQ(EntriesIn(m_Dir.File("game")), 1 + std::size(decoys) + 1);
}
} // namespace
