// Reading and editing profile files of any shape up to the 16 MiB cap stays
// within a fixed memory budget: each operation runs in a child of its own
// (bench_ini_memory_probe), which reports its peak resident memory.
#include <cstdio>
#include <string>

#include <gtest/gtest.h>

#include "tests/settings/TempDir.h"

namespace
{
constexpr long kBudgetKib = 64'000'000 / 1024; // 64 MB
constexpr std::size_t kCap = 16u * 1024 * 1024;

struct ProbeRun
{
    long peakKib = -1;
    std::string result;
};

ProbeRun Probe(const std::string& mode, const std::string& path)
{
    const std::string command = std::string(RIG_INI_MEMORY_PROBE) + " " + mode + " '" + path + "'";
    ProbeRun run;
    FILE* pipe = ::popen(command.c_str(), "r");
    if (pipe == nullptr)
        return run;
    char line[512] = {};
    if (std::fgets(line, sizeof line, pipe) != nullptr)
    {
        std::string text(line);
        if (!text.empty() && text.back() == '\n')
            text.pop_back();
        const std::size_t result = text.find(" result=");
        if (text.rfind("peak_rss_kib=", 0) == 0 && result != std::string::npos)
        {
            run.peakKib = std::stol(text.substr(13, result - 13));
            run.result = text.substr(result + 8);
        }
    }
    ::pclose(pipe);
    return run;
}

struct Shape
{
    const char* name;
    std::string bytes;
    const char* read;     // what the read gives: value length, its start, the number
    const char* settings; // the TCP host and port the settings get
};

std::string Newlines()
{
    return std::string(15'000'000, '\n');
}

std::string MillionKeys()
{
    std::string s = "[tcp]\n";
    char key[32];
    for (int i = 0; i < 1'000'000; ++i)
    {
        std::snprintf(key, sizeof key, "k%07d=%d\n", i, i);
        s += key;
    }
    return s + "host=10.1.2.3\n[s]\nk=value\nn=42\n";
}

std::string OneLongLine()
{
    const std::string head = "[s]\nn=42\nk=";
    return head + std::string(kCap - head.size() - 1, 'x') + "\n";
}

std::string Utf16Newlines()
{
    std::string s = "\xFF\xFE";
    for (int i = 0; i < 7'500'000; ++i)
        s.append("\n\0", 2);
    return s;
}

// Each shape once through the reader, the settings and an edit; the results
// show the operation did its work on the whole file.
TEST(IniMemory, EveryShapeUpToTheCapStaysUnder64MB)
{
    TempDir dir;
    const Shape shapes[] = {
        {"newlines", Newlines(), "7:missing -1", "127.0.0.1 9999"},
        {"million_keys", MillionKeys(), "5:value 42", "10.1.2.3 9999"},
        {"one_line", OneLongLine(), "511:xxxxxxxx 42", "127.0.0.1 9999"},
        {"utf16_newlines", Utf16Newlines(), "7:missing -1", "127.0.0.1 9999"},
    };
    for (const Shape& shape : shapes)
    {
        ASSERT_LE(shape.bytes.size(), kCap) << shape.name;
        const std::string path = dir.File(std::string(shape.name) + ".ini");
        TempDir::Write(path, shape.bytes);

        const ProbeRun read = Probe("read", path);
        EXPECT_EQ(read.result, shape.read) << shape.name;
        EXPECT_GT(read.peakKib, 0) << shape.name;
        EXPECT_LT(read.peakKib, kBudgetKib) << shape.name << " read";

        const ProbeRun settings = Probe("settings", path);
        EXPECT_EQ(settings.result, shape.settings) << shape.name;
        EXPECT_LT(settings.peakKib, kBudgetKib) << shape.name << " settings";

        const ProbeRun accept = Probe("accept", path);
        EXPECT_EQ(accept.result, "written") << shape.name;
        EXPECT_LT(accept.peakKib, kBudgetKib) << shape.name << " accept";
        EXPECT_EQ(Probe("read", path).result.substr(0, 10), "8:accepted") << shape.name;
    }
}
} // namespace
