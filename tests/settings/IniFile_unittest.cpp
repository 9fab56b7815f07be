#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/wait.h>
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

struct ReadCase
{
    const char* what;
    std::string content;
    const char16_t* section;
    const char16_t* key;
    tstring expected;
};

class IniReadTest : public ::testing::Test
{
protected:
    tstring Read(const std::string& content, const char16_t* section, const char16_t* key)
    {
        TempDir::Write(m_Path, content);
        return GetPrivateProfileString(section, key, u"DEFAULT", m_Path);
    }
    int ReadInt(const std::string& content, const char16_t* key)
    {
        TempDir::Write(m_Path, content);
        return GetPrivateProfileInt(u"s", key, -77, m_Path);
    }

    TempDir m_Dir;
    std::string m_Path = m_Dir.File("a.ini");
};

TEST_F(IniReadTest, ReaderRules)
{
    const ReadCase cases[] = {
        {"present value", "[tcp]\nhost=10.0.0.1\n", u"tcp", u"host", u"10.0.0.1"},
        {"missing section", "[udp]\nhost=10.0.0.1\n", u"tcp", u"host", u"DEFAULT"},
        {"missing key", "[tcp]\nport=1\n", u"tcp", u"host", u"DEFAULT"},
        {"empty value is not the default", "[tcp]\nhost=\n", u"tcp", u"host", u""},
        {"names ignore case", "[TcP]\nHOST=x\n", u"tcp", u"host", u"x"},
        {"blanks around names and values", "  [ tcp ]  \n\t host \t=  a b \t\n", u"tcp", u"host", u"a b"},
        {"CRLF never leaves a CR", "[url]\r\nlink=http://h/\r\n", u"url", u"link", u"http://h/"},
        {"lone CR ends a line", "[url]\rlink=http://h/\rnext=1", u"url", u"link", u"http://h/"},
        {"CR at end of file", "[url]\nlink=http://h/\r", u"url", u"link", u"http://h/"},
        {"comment lines", "[s]\n;k=1\n# k=2\nk=3\n", u"s", u"k", u"3"},
        {"no comment after a value", "[s]\nk=http://h/a;b#frag\n", u"s", u"k", u"http://h/a;b#frag"},
        {"matching quotes are removed", "[s]\nk=\"  x \"\n", u"s", u"k", u"  x "},
        {"single quotes too", "[s]\nk='y'\n", u"s", u"k", u"y"},
        {"unmatched quotes stay", "[s]\nk=\"y'\n", u"s", u"k", u"\"y'"},
        {"first duplicate key wins", "[s]\nk=1\nk=2\n", u"s", u"k", u"1"},
        {"duplicate sections are one", "[s]\na=1\n[t]\nk=9\n[S]\nk=2\n", u"s", u"k", u"2"},
        {"keys before any section are never found", "k=1\n[s]\n", u"s", u"k", u"DEFAULT"},
        {"header without bracket is not a section", "[s\nk=1\n", u"s", u"k", u"DEFAULT"},
        {"first '=' splits", "[s]\nk=a=b\n", u"s", u"k", u"a=b"},
        {"UTF-8 byte-order mark", "\xEF\xBB\xBF[s]\nk=1\n", u"s", u"k", u"1"},
        {"UTF-8 text", "[s]\nk=caf\xC3\xA9 \xF0\x9F\x98\x80\n", u"s", u"k", u"caf\u00E9 \U0001F600"},
        {"UTF-16LE with its mark", Bytes("\xFF\xFE[\0s\0]\0\n\0k\0=\0\xE9\0\r\0\n\0"), u"s", u"k", u"\u00E9"},
        {"UTF-16BE with its mark", Bytes("\xFE\xFF\0[\0s\0]\0\n\0k\0=\0z"), u"s", u"k", u"z"},
    };
    for (const ReadCase& c : cases)
        EXPECT_EQ(Read(c.content, c.section, c.key), c.expected) << c.what;
}

TEST_F(IniReadTest, MissingFileOrFolderGivesDefault)
{
    EXPECT_EQ(GetPrivateProfileString(u"s", u"k", u"d", m_Dir.File("none.ini")), u"d");
    EXPECT_EQ(GetPrivateProfileInt(u"s", u"k", 42, m_Dir.File("none.ini")), 42);
    EXPECT_EQ(GetPrivateProfileString(u"s", u"k", u"d", m_Dir.Path()), u"d"); // a folder is no file
}

TEST_F(IniReadTest, ValuesAreCutAt511WithoutSplittingAPair)
{
    EXPECT_EQ(Read("[s]\nk=" + std::string(600, 'x') + "\n", u"s", u"k"), tstring(511, u'x'));
    // An emoji whose first half would be character 511 is dropped whole.
    const tstring cut = Read("[s]\nk=" + std::string(510, 'x') + "\xF0\x9F\x98\x80yy\n", u"s", u"k");
    EXPECT_EQ(cut, tstring(510, u'x'));
    // The default is cut like a value.
    EXPECT_EQ(GetPrivateProfileString(u"s", u"none", tstring(600, u'd'), m_Path).size(), 511u);
}

TEST_F(IniReadTest, IntegerIsTheNumberAtTheStart)
{
    EXPECT_EQ(ReadInt("[s]\nk=80\n", u"k"), 80);
    EXPECT_EQ(ReadInt("[s]\nk=-5\n", u"k"), -5);
    EXPECT_EQ(ReadInt("[s]\nk= 12abc \n", u"k"), 12);
    EXPECT_EQ(ReadInt("[s]\nk=\"7\"\n", u"k"), 7);
    EXPECT_EQ(ReadInt("[s]\nk=abc\n", u"k"), 0);
    EXPECT_EQ(ReadInt("[s]\nk=\n", u"k"), 0);
    EXPECT_EQ(ReadInt("[s]\nk=1\n", u"missing"), -77);
    EXPECT_EQ(ReadInt("[S]\r\nK=99999999999\r\n", u"k"), 2147483647);
}

class IniWriteTest : public ::testing::Test
{
protected:
    bool Write(const char16_t* section, const char16_t* key, const char16_t* value)
    {
        return WritePrivateProfileString(section, key, value, m_Path);
    }
    std::string Content() const { return TempDir::Read(m_Path); }
    std::size_t EntriesInDir() const
    {
        std::size_t n = 0;
        for ([[maybe_unused]] const auto& e : std::filesystem::directory_iterator(m_Dir.Path()))
            ++n;
        return n;
    }

    TempDir m_Dir;
    std::string m_Path = m_Dir.File("option.ini");
};

struct WriteCase
{
    const char* what;
    std::string before;
    const char16_t* section;
    const char16_t* key;
    const char16_t* value;
    std::string after;
};

TEST_F(IniWriteTest, EditsKeepEveryOtherByte)
{
    const WriteCase cases[] = {
        {"creates the file", "", u"video", u"shadow", u"1", "[video]\r\nshadow=1\r\n"},
        {"replaces in place, ignoring case", "; game options\n[Video]\nShadow = 0 \nchar_lod=1\n", u"video",
         u"shadow", u"1", "; game options\n[Video]\nShadow = 1\nchar_lod=1\n"},
        {"keeps CRLF and a missing last line end", "[a]\r\nx=1\r\n[video]\r\nshadow=0", u"video", u"shadow",
         u"1", "[a]\r\nx=1\r\n[video]\r\nshadow=1"},
        {"adds a key after the section's last line", "[video]\nshadow=0\n\n[other]\nk=v\n", u"VIDEO",
         u"audience", u"0", "[video]\nshadow=0\naudience=0\n\n[other]\nk=v\n"},
        {"adds a key to a section at the end without a line end", "[video]\r\nshadow=0", u"video",
         u"audience", u"1", "[video]\r\nshadow=0\r\naudience=1\r\n"},
        {"adds a section with the file's line end", "[a]\nx=1", u"video", u"shadow", u"1",
         "[a]\nx=1\n[video]\nshadow=1\n"},
        {"replaces the occurrence the reader reads", "[v]\nk=1\n[w]\n[V]\nk=2\n", u"v", u"k", u"3",
         "[v]\nk=3\n[w]\n[V]\nk=2\n"},
        {"keeps a byte-order mark and foreign bytes", "\xEF\xBB\xBF[v]\nbad=\xFF\xFE\nk=0\n", u"v", u"k",
         u"1", "\xEF\xBB\xBF[v]\nbad=\xFF\xFE\nk=1\n"},
        {"writes UTF-16LE files in their encoding",
         Bytes("\xFF\xFE[\0v\0]\0\n\0k\0=\0"
               "0\0"),
         u"v", u"k", u"1",
         Bytes("\xFF\xFE[\0v\0]\0\n\0k\0=\0"
               "1\0")},
    };
    for (const WriteCase& c : cases)
    {
        std::filesystem::remove(m_Path);
        if (!c.before.empty())
            TempDir::Write(m_Path, c.before);
        EXPECT_TRUE(Write(c.section, c.key, c.value)) << c.what;
        EXPECT_EQ(Content(), c.after) << c.what;
        EXPECT_EQ(EntriesInDir(), 1u) << c.what << ": a temporary file was left behind";
    }
}

TEST_F(IniWriteTest, WrittenValuesReadBack)
{
    ASSERT_TRUE(Write(u"video", u"shadow", u"1"));
    ASSERT_TRUE(Write(u"video", u"audience", u"0"));
    ASSERT_TRUE(Write(u"Video", u"SHADOW", u"0"));
    EXPECT_EQ(Content(), "[video]\r\nshadow=0\r\naudience=0\r\n");
    EXPECT_EQ(GetPrivateProfileInt(u"video", u"audience", 7, m_Path), 0);
}

TEST_F(IniWriteTest, RefusesTextThatWouldBreakTheFile)
{
    TempDir::Write(m_Path, "[v]\nk=0\n");
    EXPECT_FALSE(Write(u"v", u"k", u"1\r\n[evil]"));
    EXPECT_FALSE(Write(u"v]", u"k", u"1"));
    EXPECT_FALSE(Write(u"v", u"k=", u"1"));
    EXPECT_FALSE(Write(u"", u"k", u"1"));
    EXPECT_EQ(Content(), "[v]\nk=0\n");
}

TEST_F(IniWriteTest, FailsInAMissingFolder)
{
    EXPECT_FALSE(WritePrivateProfileString(u"v", u"k", u"1", m_Dir.File("game/option.ini")));
}

TEST_F(IniWriteTest, KeepsTheFileMode)
{
    TempDir::Write(m_Path, "[v]\nk=0\n");
    ASSERT_EQ(::chmod(m_Path.c_str(), 0640), 0);
    ASSERT_TRUE(Write(u"v", u"k", u"1"));
    struct stat st
    {
    };
    ASSERT_EQ(::stat(m_Path.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0640u);

    // A new file gets what a plain creation gives: 0666 less the umask.
    const std::string fresh = m_Dir.File("new.ini");
    const mode_t old = ::umask(022);
    ASSERT_TRUE(WritePrivateProfileString(u"v", u"k", u"1", fresh));
    ::umask(old);
    ASSERT_EQ(::stat(fresh.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0644u);
}

TEST_F(IniWriteTest, FollowsASymbolicLink)
{
    const std::string target = m_Dir.File("real.ini");
    TempDir::Write(target, "[v]\nk=0\n");
    ASSERT_EQ(::symlink("real.ini", m_Path.c_str()), 0);
    ASSERT_TRUE(Write(u"v", u"k", u"1"));
    EXPECT_TRUE(std::filesystem::is_symlink(m_Path));
    EXPECT_EQ(TempDir::Read(target), "[v]\nk=1\n");

    const std::string dangling = m_Dir.File("dangling.ini");
    ASSERT_EQ(::symlink("nowhere/x.ini", dangling.c_str()), 0);
    EXPECT_FALSE(WritePrivateProfileString(u"v", u"k", u"1", dangling));
}

// A read-only folder holding a writable file: no temporary file can be made,
// so the write fails and the file stays as it was. Root ignores folder
// permissions, so as root the write runs in a child that drops to nobody.
TEST_F(IniWriteTest, ReadOnlyFolderLeavesTheFileUntouched)
{
    const std::string folder = m_Dir.File("ro");
    ASSERT_EQ(::mkdir(folder.c_str(), 0755), 0);
    const std::string file = folder + "/option.ini";
    TempDir::Write(file, "[v]\nk=0\n");
    ASSERT_EQ(::chmod(file.c_str(), 0666), 0);
    ASSERT_EQ(::chmod(folder.c_str(), 0555), 0);

    int written = -1;
    if (::geteuid() != 0)
    {
        written = WritePrivateProfileString(u"v", u"k", u"1", file) ? 1 : 0;
    }
    else
    {
        const passwd* nobody = ::getpwnam("nobody");
        ASSERT_NE(nobody, nullptr);
        ASSERT_EQ(::chmod(m_Dir.Path().c_str(), 0755), 0);
        const pid_t pid = ::fork();
        ASSERT_GE(pid, 0);
        if (pid == 0)
        {
            if (::setgid(nobody->pw_gid) != 0 || ::setuid(nobody->pw_uid) != 0)
                ::_exit(3);
            ::_exit(WritePrivateProfileString(u"v", u"k", u"1", file) ? 1 : 0);
        }
        int status = 0;
        ASSERT_EQ(::waitpid(pid, &status, 0), pid);
        ASSERT_TRUE(WIFEXITED(status));
        written = WEXITSTATUS(status);
    }
    EXPECT_EQ(written, 0);
    EXPECT_EQ(TempDir::Read(file), "[v]\nk=0\n");
    EXPECT_EQ(
        std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator()), 1);
}
} // namespace
