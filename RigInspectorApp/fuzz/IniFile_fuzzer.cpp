// The input is a whole settings file. Every section and key name found in it
// (plus the names the program itself uses) is read back with both readers;
// then one entry is written and the file read again: the entry must come back
// as written and every other entry must read as before.
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "RigInspectorApp/IniFile.h"
#include "share/common/StringUtil.h"
#include "tests/FuzzCheck.h"

namespace
{
// Every pair is read twice per input, and each read parses the whole file:
// a few names keep the fuzzer at hundreds of inputs a second.
constexpr std::size_t kMaxSections = 4;
constexpr std::size_t kMaxKeys = 6;
constexpr std::size_t kMaxValueChars = 511;
const tstring kMissing = u"\x01missing";

std::string g_Dir;
std::string g_Path;

/// The file's text, decoded without the reader's own code: names to ask for.
tstring Decode(const std::uint8_t* pData, std::size_t nSize)
{
    const bool le = nSize >= 2 && pData[0] == 0xFF && pData[1] == 0xFE;
    const bool be = nSize >= 2 && pData[0] == 0xFE && pData[1] == 0xFF;
    if (!le && !be)
        return zul::ToWide(reinterpret_cast<const char*>(pData), static_cast<int>(nSize));
    tstring text;
    for (std::size_t i = 2; i + 1 < nSize; i += 2)
        text.push_back(
            static_cast<char16_t>(le ? pData[i] | (pData[i + 1] << 8) : (pData[i] << 8) | pData[i + 1]));
    return text;
}

bool IsSurrogate(char16_t c)
{
    return c >= 0xD800 && c <= 0xDFFF;
}

tstring Trimmed(const tstring& text)
{
    std::size_t first = 0;
    std::size_t last = text.size();
    while (first < last && (text[first] == u' ' || text[first] == u'\t'))
        ++first;
    while (last > first && (text[last - 1] == u' ' || text[last - 1] == u'\t'))
        --last;
    return text.substr(first, last - first);
}

/// A name the writer accepts and the reader can find again: no blanks at its
/// ends, no line break, no surrogate (UTF-8 files keep none unpaired).
bool IsFindable(const tstring& name)
{
    if (name.empty() || name != Trimmed(name))
        return false;
    for (char16_t c : name)
    {
        if (c == u'\r' || c == u'\n' || IsSurrogate(c))
            return false;
    }
    return true;
}

void AddName(std::vector<tstring>& names, std::size_t nMax, const tstring& name)
{
    if (names.size() < nMax && IsFindable(name))
        names.push_back(name);
}

void FindNames(const tstring& text, std::vector<tstring>& sections, std::vector<tstring>& keys)
{
    for (const tstring& raw : zul::Tokenize(text, u"\r\n"))
    {
        const tstring line = Trimmed(raw);
        if (line.empty())
            continue;
        if (line[0] == u'[')
        {
            const std::size_t close = line.find(u']');
            if (close != tstring::npos)
                AddName(sections, kMaxSections, Trimmed(line.substr(1, close - 1)));
        }
        else if (line[0] != u';' && line[0] != u'#' && line.find(u'=') != tstring::npos)
        {
            AddName(keys, kMaxKeys, Trimmed(line.substr(0, line.find(u'='))));
        }
    }
    for (const char16_t* name : {u"tcp", u"udp", u"video"})
        AddName(sections, kMaxSections, name);
    for (const char16_t* name : {u"host", u"port", u"check_port_min", u"char_lod"})
        AddName(keys, kMaxKeys, name);
}

bool NamesEqual(const tstring& a, const tstring& b)
{
    const auto lower = [](char16_t c) { return c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c + 32) : c; };
    return std::ranges::equal(a, b, {}, lower, lower);
}

using Entries = std::map<std::pair<tstring, tstring>, tstring>;

Entries ReadAll(const std::vector<tstring>& sections, const std::vector<tstring>& keys)
{
    Entries entries;
    for (const tstring& section : sections)
    {
        for (const tstring& key : keys)
        {
            const tstring value = GetPrivateProfileString(section, key, kMissing, g_Path);
            FUZZ_CHECK(value.size() <= kMaxValueChars);
            const int number = GetPrivateProfileInt(section, key, -7, g_Path);
            // An empty value reads as a missing one, as the system's functions have it.
            if (value == kMissing || value.empty())
                FUZZ_CHECK(number == -7);
            else if (value.size() < kMaxValueChars)
                FUZZ_CHECK(number == zul::Wtoi(value));
            entries[{section, key}] = value;
        }
    }
    return entries;
}

/// A value that reads back exactly as written: one line, no blanks at its
/// ends, not wrapped in quotes, no unpaired surrogate, well under the cut.
tstring ValueFrom(const tstring& text, std::size_t nSeed)
{
    tstring value;
    for (std::size_t i = nSeed % (text.size() + 1); i < text.size() && value.size() < 200; ++i)
    {
        const char16_t c = text[i];
        value.push_back(c == u'\r' || c == u'\n' || IsSurrogate(c) ? u'?' : c);
    }
    value = Trimmed(value);
    // Dropping one closing quote can leave another one, or a blank, at the end.
    while (value.size() >= 2 && (value.front() == u'"' || value.front() == u'\'') &&
           value.back() == value.front())
    {
        value.pop_back();
        value = Trimmed(value);
    }
    return value;
}
} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    // Every write ends with fsync: on a disk that caps the fuzzer at a few
    // dozen inputs a second, in memory it costs nothing.
    const char* tmp = std::getenv("TMPDIR");
    std::string base = ::access("/dev/shm", W_OK) == 0  ? "/dev/shm"
                       : tmp != nullptr && *tmp != '\0' ? tmp
                                                        : "/tmp";
    std::string pattern = base + "/rig_ini_fuzz.XXXXXX";
    FUZZ_CHECK(::mkdtemp(pattern.data()) != nullptr);
    g_Dir = pattern;
    g_Path = g_Dir + "/rig_inspector.ini";
    std::atexit(
        []
        {
            std::error_code ignored;
            std::filesystem::remove_all(g_Dir, ignored);
        });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize)
{
    std::FILE* file = std::fopen(g_Path.c_str(), "wb");
    FUZZ_CHECK(file != nullptr);
    FUZZ_CHECK(std::fwrite(pData, 1, nSize, file) == nSize);
    FUZZ_CHECK(std::fclose(file) == 0);

    const tstring text = Decode(pData, nSize);
    std::vector<tstring> sections;
    std::vector<tstring> keys;
    FindNames(text, sections, keys);
    const Entries before = ReadAll(sections, keys);

    // The entry to write: names from the file or new ones, a value from its text.
    const std::size_t seed = nSize == 0 ? 0 : pData[nSize - 1] + (pData[0] << 8);
    const tstring section =
        sections.empty() || seed % 5 == 0 ? tstring(u"fuzz") : sections[seed % sections.size()];
    tstring key = keys.empty() || seed % 7 == 0 ? tstring(u"fuzz_key") : keys[(seed / 3) % keys.size()];
    // A key line opening like a comment or a section is not a key.
    if (key[0] == u';' || key[0] == u'#' || key[0] == u'[')
        key = u"fuzz_key";
    const tstring value = ValueFrom(text, seed);

    FUZZ_CHECK(WritePrivateProfileString(section, key, value, g_Path));
    FUZZ_CHECK(GetPrivateProfileString(section, key, kMissing, g_Path) == value);
    for (const auto& [name, now] : ReadAll(sections, keys))
    {
        if (NamesEqual(name.first, section) && NamesEqual(name.second, key))
            continue;
        FUZZ_CHECK(before.at(name) == now);
    }
    ::unlink(g_Path.c_str());
    return 0;
}
