// bench_ini_memory_probe MODE PATH: one profile operation on PATH in a process of its
// own, then its peak resident memory, for the memory test and the benchmark.
// MODE: read (one string and one number), accept (the four option keys as
// --accept writes them), settings (every setting, with their checks).
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

#include "RigInspector/Diagnostics.h"
#include "RigInspectorApp/AnalyzerSettings.h"
#include "RigInspectorApp/IniFile.h"
#include "share/common/StringUtil.h"

namespace
{
/// VmHWM: the most this process ever held resident, in KiB.
long PeakResidentKib()
{
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
    {
        if (line.rfind("VmHWM:", 0) == 0)
            return std::stol(line.substr(6));
    }
    return -1;
}
} // namespace

int main(int argc, char** argv)
{
    if (argc != 3)
    {
        std::fprintf(stderr, "usage: bench_ini_memory_probe read|accept|settings PATH\n");
        return 2;
    }
    const std::string mode = argv[1];
    const std::string path = argv[2];
    std::string result;
    if (mode == "read")
    {
        const tstring text = GetPrivateProfileString(u"s", u"k", u"missing", path);
        const int number = GetPrivateProfileInt(u"s", u"n", -1, path);
        result = std::to_string(text.size()) + ":" + zul::Utf16ToUtf8(text.substr(0, 8)) + " " +
                 std::to_string(number);
    }
    else if (mode == "accept")
    {
        tstring why;
        const bool bWritten = WritePrivateProfileStrings(
            u"s", {{u"char_lod", u"1"}, {u"shadow", u"0"}, {u"audience", u"1"}, {u"k", u"accepted"}}, path,
            &why);
        result = bWritten ? "written" : "failed: " + zul::Utf16ToUtf8(why);
    }
    else if (mode == "settings")
    {
        Diagnostics diagnostics;
        const AnalyzerSettings settings(path, &diagnostics);
        result = zul::Utf16ToUtf8(settings.m_TcpHost) + " " + std::to_string(settings.m_TcpPort);
    }
    else
    {
        std::fprintf(stderr, "bench_ini_memory_probe: unknown mode %s\n", mode.c_str());
        return 2;
    }
    std::printf("peak_rss_kib=%ld result=%s\n", PeakResidentKib(), result.c_str());
    return 0;
}
