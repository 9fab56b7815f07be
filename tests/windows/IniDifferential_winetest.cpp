// The project's own profile reader and writer against the system's profile
// functions, on the same files: the game reads option.ini through the system's,
// so wherever both are defined they must agree.
#include <windows.h>
// The project's functions keep their own names; the system's are called by their W names.
#undef GetPrivateProfileString
#undef GetPrivateProfileInt

#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "RigInspectorApp/IniFile.h"
#include "tests/settings/TempDir.h"

namespace
{
const wchar_t* W(const tstring& text)
{
    return reinterpret_cast<const wchar_t*>(text.c_str());
}

tstring SystemString(const tstring& section, const tstring& key, const tstring& path)
{
    wchar_t buffer[512] = {};
    const DWORD n = ::GetPrivateProfileStringW(W(section), W(key), W(u"<default>"), buffer, 512, W(path));
    return tstring(reinterpret_cast<const char16_t*>(buffer), n);
}

void WriteBytes(const std::string& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

struct Lookup
{
    const char16_t* section;
    const char16_t* key;
};

TEST(ProfileFilesOnWine, OurReaderReadsWhatTheSystemReads)
{
    const std::string longValue(600, 'x');
    const struct
    {
        std::string content;
        std::vector<Lookup> lookups;
    } files[] = {
        {"[tcp]\r\nhost=10.0.0.1\r\nport=1234\r\n",
         {{u"tcp", u"host"}, {u"tcp", u"port"}, {u"udp", u"port"}}},
        {"[TCP]\r\nPort=80\r\n", {{u"tcp", u"port"}, {u"Tcp", u"PORT"}}},
        {"[udp]\r\nhost=\r\nport=9998\r\n", {{u"udp", u"host"}, {u"udp", u"missing"}}},
        {"[url]\r\n  portforward  =  http://a.example/  \r\n", {{u"url", u"portforward"}}},
        {"[url]\r\nmin_requirement=\"http://a b/\"\r\nq='x'\r\n",
         {{u"url", u"min_requirement"}, {u"url", u"q"}}},
        {"[system]\r\nmin_cpu_speed=1\r\nmin_cpu_speed=2\r\n", {{u"system", u"min_cpu_speed"}}},
        {"[system]\nmin_video_memory=64\n[url]\nportforward=http://x/a=b;c#d\n",
         {{u"system", u"min_video_memory"}, {u"url", u"portforward"}}},
        {"[firewall]\r\nurl_more_info=" + longValue + "\r\n", {{u"firewall", u"url_more_info"}}},
        {"", {{u"tcp", u"host"}}},
    };
    TempDir dir;
    const std::string path = dir.Path() + "/rig_inspector.ini";
    const tstring widePath(path.begin(), path.end());
    for (const auto& file : files)
    {
        WriteBytes(path, file.content);
        for (const Lookup& l : file.lookups)
            EXPECT_EQ(GetPrivateProfileString(l.section, l.key, u"<default>", path),
                      SystemString(l.section, l.key, widePath))
                << "[" << std::string(l.section, l.section + std::char_traits<char16_t>::length(l.section))
                << "] in:\n"
                << file.content;
    }

    const char* numbers[] = {"42", " 42", "42abc", "abc", "", "0020", "2147483647"};
    for (const char* number : numbers)
    {
        WriteBytes(path, std::string("[tcp]\r\nport=") + number + "\r\n");
        EXPECT_EQ(GetPrivateProfileInt(u"tcp", u"port", 7, path),
                  static_cast<int>(::GetPrivateProfileIntW(L"tcp", L"port", 7, W(widePath))))
            << "port=" << number;
    }
}

TEST(ProfileFilesOnWine, TheSystemReadsWhatOurWriterWrote)
{
    TempDir dir;
    const std::string path = dir.Path() + "/option.ini";
    const tstring widePath(path.begin(), path.end());
    WriteBytes(path, "; the game's own\r\n[Video]\r\nShadow=0\r\nwidth=1024\r\n[sound]\r\nvolume=7\r\n");
    ASSERT_TRUE(WritePrivateProfileStrings(
        u"video", {{u"shadow", u"1"}, {u"audience", u"1"}, {u"event_screen", u"0"}, {u"char_lod", u"1"}},
        path));
    EXPECT_EQ(SystemString(u"video", u"shadow", widePath), u"1");
    EXPECT_EQ(SystemString(u"video", u"audience", widePath), u"1");
    EXPECT_EQ(SystemString(u"video", u"event_screen", widePath), u"0");
    EXPECT_EQ(SystemString(u"video", u"char_lod", widePath), u"1");
    EXPECT_EQ(SystemString(u"video", u"width", widePath), u"1024");
    EXPECT_EQ(SystemString(u"sound", u"volume", widePath), u"7");

    // A new file, its folder existing.
    const std::string fresh = dir.Path() + "/new.ini";
    ASSERT_TRUE(WritePrivateProfileStrings(u"video", {{u"shadow", u"0"}}, fresh));
    EXPECT_EQ(SystemString(u"video", u"shadow", tstring(fresh.begin(), fresh.end())), u"0");
}
} // namespace
