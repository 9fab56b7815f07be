// Hand-written: no library reproduces the Windows profile API's rules (default
// for anything missing, the 511-character cut, _wtoi integers, in-place edits).
//
// Rules chosen where that API leaves us free, each with the reason:
// - Encoding: UTF-8, with or without a byte-order mark (skipped when reading,
//   kept when writing). A UTF-16 file with its byte-order mark (FF FE or FE FF)
//   is read and written in its own encoding, as Notepad-made profiles are.
//   Without a mark the file is UTF-8; invalid bytes read as U+FFFD but are
//   never rewritten unless they sit on the one line that is replaced.
// - Line ends: "\r\n", "\n" and a lone "\r" all end a line, so no "\r" can
//   ever reach a value (a URL with a trailing "\r" would be broken).
// - Blanks (space, tab) around section names, keys and values are dropped.
// - Comments: a line whose first non-blank character is ';' or '#'. There are
//   no comments after a value: URLs carry '#' and ';'.
// - Quotes: one pair of matching double or single quotes around a whole value
//   is removed, as Windows does, so a value can keep blanks at its ends.
// - Duplicate sections are one section; the first occurrence of a key wins,
//   and the writer replaces exactly the occurrence the reader returns.
// - Keys before the first section belong to no section and are never found.
// - A line opening with '[' but without ']' is not a section header.
// - Names ignore case for ASCII letters only, as the C runtime's _wcsicmp in
//   the "C" locale does; the names this program uses are ASCII.
// - The 511-character cut never leaves half a surrogate pair: a high
//   surrogate that would end the value is dropped too (510 characters).
#include "IniFile.h"

#include "IniFileIo.h"
#include "share/common/StringUtil.h"

#include <optional>
#include <vector>

namespace
{
constexpr std::size_t kMaxValueChars = 511;

enum class Encoding
{
    Utf8,
    Utf16Le,
    Utf16Be
};

struct Line
{
    std::size_t begin = 0; // first byte of the content
    std::size_t end = 0;   // one past the content, where the line end starts
    std::size_t next = 0;  // one past the line end
    tstring text;          // the decoded content
    bool isSection = false;
    bool isKey = false;
    tstring name;               // section name or key, trimmed
    std::size_t valueStart = 0; // in text: the first character after '=' and its blanks
};

struct Document
{
    Encoding encoding = Encoding::Utf8;
    std::size_t bomBytes = 0;
    std::string bytes;
    std::vector<Line> lines;
};

bool IsBlank(char16_t c)
{
    return c == u' ' || c == u'\t';
}

tstring TrimBlanks(const tstring& text)
{
    std::size_t first = 0;
    std::size_t last = text.size();
    while (first < last && IsBlank(text[first]))
        ++first;
    while (last > first && IsBlank(text[last - 1]))
        --last;
    return text.substr(first, last - first);
}

char16_t AsciiLower(char16_t c)
{
    return (c >= u'A' && c <= u'Z') ? static_cast<char16_t>(c - u'A' + u'a') : c;
}

bool NamesEqual(const tstring& a, const tstring& b)
{
    if (a.size() != b.size())
        return false;
    for (std::size_t i = 0; i < a.size(); ++i)
    {
        if (AsciiLower(a[i]) != AsciiLower(b[i]))
            return false;
    }
    return true;
}

std::size_t UnitBytes(Encoding encoding)
{
    return encoding == Encoding::Utf8 ? 1 : 2;
}

char16_t UnitAt(const Document& doc, std::size_t offset)
{
    const auto b0 = static_cast<unsigned char>(doc.bytes[offset]);
    if (doc.encoding == Encoding::Utf8)
        return b0;
    const auto b1 = static_cast<unsigned char>(doc.bytes[offset + 1]);
    return doc.encoding == Encoding::Utf16Le ? static_cast<char16_t>(b0 | (b1 << 8))
                                             : static_cast<char16_t>((b0 << 8) | b1);
}

std::string Encode(Encoding encoding, const tstring& text)
{
    if (encoding == Encoding::Utf8)
        return zul::Utf16ToUtf8(text);
    std::string out;
    for (char16_t c : text)
    {
        const char lo = static_cast<char>(c & 0xFF);
        const char hi = static_cast<char>(c >> 8);
        if (encoding == Encoding::Utf16Le)
        {
            out.push_back(lo);
            out.push_back(hi);
        }
        else
        {
            out.push_back(hi);
            out.push_back(lo);
        }
    }
    return out;
}

tstring DecodeRange(const Document& doc, std::size_t begin, std::size_t end)
{
    if (doc.encoding == Encoding::Utf8)
        return zul::Utf8ToUtf16(std::string_view(doc.bytes).substr(begin, end - begin));
    tstring out;
    for (std::size_t i = begin; i < end; i += 2)
        out.push_back(UnitAt(doc, i));
    return out;
}

void Classify(Line& line)
{
    const tstring trimmed = TrimBlanks(line.text);
    if (trimmed.empty() || trimmed[0] == u';' || trimmed[0] == u'#')
        return;
    if (trimmed[0] == u'[')
    {
        const std::size_t close = trimmed.find(u']');
        if (close != tstring::npos)
        {
            line.isSection = true;
            line.name = TrimBlanks(trimmed.substr(1, close - 1));
        }
        return;
    }
    const std::size_t equals = line.text.find(u'=');
    if (equals == tstring::npos)
        return;
    line.name = TrimBlanks(line.text.substr(0, equals));
    if (line.name.empty())
        return;
    line.isKey = true;
    line.valueStart = equals + 1;
    while (line.valueStart < line.text.size() && IsBlank(line.text[line.valueStart]))
        ++line.valueStart;
}

Document DetectEncoding(std::string bytes)
{
    Document doc;
    doc.bytes = std::move(bytes);
    const std::string& b = doc.bytes;
    if (b.size() >= 3 && b.compare(0, 3, "\xEF\xBB\xBF") == 0)
    {
        doc.bomBytes = 3;
    }
    else if (b.size() >= 2 && b.compare(0, 2, "\xFF\xFE") == 0)
    {
        doc.encoding = Encoding::Utf16Le;
        doc.bomBytes = 2;
    }
    else if (b.size() >= 2 && b.compare(0, 2, "\xFE\xFF") == 0)
    {
        doc.encoding = Encoding::Utf16Be;
        doc.bomBytes = 2;
    }
    return doc;
}

/// Calls visit with each line in turn until it returns false. One line at a
/// time: a reader looking for one key never holds the whole file's lines.
template <class Visit> void ForEachLine(const Document& doc, Visit visit)
{
    const std::string& b = doc.bytes;
    const std::size_t unit = UnitBytes(doc.encoding);
    // A dangling odd byte of a UTF-16 file is not a character; it is kept as is.
    const std::size_t limit = doc.bomBytes + (b.size() - doc.bomBytes) / unit * unit;
    std::size_t pos = doc.bomBytes;
    while (pos < limit)
    {
        Line line;
        line.begin = pos;
        std::size_t i = pos;
        while (i < limit && UnitAt(doc, i) != u'\r' && UnitAt(doc, i) != u'\n')
            i += unit;
        line.end = i;
        if (i < limit && UnitAt(doc, i) == u'\r')
            i += unit;
        if (i < limit && UnitAt(doc, i) == u'\n')
            i += unit;
        line.next = i;
        line.text = DecodeRange(doc, line.begin, line.end);
        Classify(line);
        pos = i;
        if (!visit(line))
            return;
    }
}

Document Parse(std::string bytes)
{
    Document doc = DetectEncoding(std::move(bytes));
    ForEachLine(doc,
                [&doc](Line& line)
                {
                    doc.lines.push_back(std::move(line));
                    return true;
                });
    return doc;
}

tstring CutToBuffer(tstring text)
{
    if (text.size() > kMaxValueChars)
    {
        std::size_t keep = kMaxValueChars;
        if (text[keep - 1] >= 0xD800 && text[keep - 1] <= 0xDBFF)
            --keep;
        text.resize(keep);
    }
    return text;
}

tstring ValueOf(const Line& line)
{
    tstring value = TrimBlanks(line.text.substr(line.valueStart));
    if (value.size() >= 2 && (value.front() == u'"' || value.front() == u'\'') &&
        value.back() == value.front())
        value = value.substr(1, value.size() - 2);
    return value;
}

/// The line of [section] key as the reader finds it, or null.
const Line* FindKey(const Document& doc, const tstring& section, const tstring& key)
{
    bool inSection = false;
    for (const Line& line : doc.lines)
    {
        if (line.isSection)
            inSection = NamesEqual(line.name, section);
        else if (inSection && line.isKey && NamesEqual(line.name, key))
            return &line;
    }
    return nullptr;
}

std::optional<tstring> ReadValue(const std::string& path, const tstring& section, const tstring& key)
{
    ini_io::ReadResult file = ini_io::ReadWholeFile(path);
    if (file.status != ini_io::ReadStatus::Ok)
        return std::nullopt;
    const Document doc = DetectEncoding(std::move(file.bytes));
    std::optional<tstring> value;
    bool inSection = false;
    ForEachLine(doc,
                [&](const Line& line)
                {
                    if (line.isSection)
                        inSection = NamesEqual(line.name, section);
                    else if (inSection && line.isKey && NamesEqual(line.name, key))
                        value = ValueOf(line);
                    return !value;
                });
    return value;
}

bool HasLineBreak(const tstring& text)
{
    return text.find_first_of(u"\r\n") != tstring::npos;
}

/// The line end the file already uses, so that added lines match it; a new
/// file gets the Windows line end, since the game reads these files there.
std::string LineEndOf(const Document& doc)
{
    for (const Line& line : doc.lines)
    {
        if (line.next > line.end)
            return doc.bytes.substr(line.end, line.next - line.end);
    }
    return Encode(doc.encoding, u"\r\n");
}

std::string Edited(const Document& doc, const tstring& section, const tstring& key, const tstring& value)
{
    const std::string eol = LineEndOf(doc);
    const std::string& b = doc.bytes;
    if (const Line* found = FindKey(doc, section, key))
    {
        // Keep the key's spelling and the blanks around '='; only the value changes.
        const tstring replaced = found->text.substr(0, found->valueStart) + value;
        return b.substr(0, found->begin) + Encode(doc.encoding, replaced) + b.substr(found->end);
    }
    const std::string keyLine = Encode(doc.encoding, key + u"=" + value);
    // The new key goes after the last non-blank line of the section's first
    // occurrence, so blank lines that separate sections stay where they are.
    const Line* anchor = nullptr;
    bool inSection = false;
    for (const Line& line : doc.lines)
    {
        if (line.isSection)
        {
            if (inSection)
                break;
            inSection = NamesEqual(line.name, section);
            if (inSection)
                anchor = &line;
        }
        else if (inSection && !TrimBlanks(line.text).empty())
        {
            anchor = &line;
        }
    }
    if (anchor != nullptr)
    {
        if (anchor->next == anchor->end) // the last line, without a line end
            return b.substr(0, anchor->end) + eol + keyLine + eol + b.substr(anchor->next);
        return b.substr(0, anchor->next) + keyLine + eol + b.substr(anchor->next);
    }
    // The new section goes before a dangling odd byte of a UTF-16 file, which
    // would otherwise shift every character after it by one byte.
    const std::size_t unit = UnitBytes(doc.encoding);
    const std::size_t limit = doc.bomBytes + (b.size() - doc.bomBytes) / unit * unit;
    std::string out = b.substr(0, limit);
    if (!doc.lines.empty() && doc.lines.back().next == doc.lines.back().end)
        out += eol;
    out += Encode(doc.encoding, u"[" + section + u"]") + eol + keyLine + eol;
    return out + b.substr(limit);
}

} // namespace

tstring GetPrivateProfileString(const tstring& section, const tstring& key, const tstring& defaultValue,
                                const std::string& path)
{
    std::optional<tstring> value = ReadValue(path, section, key);
    return CutToBuffer(value ? std::move(*value) : defaultValue);
}

int GetPrivateProfileInt(const tstring& section, const tstring& key, int defaultValue,
                         const std::string& path)
{
    // A key present with nothing after '=' reads as missing, as the system's
    // own function (a string read with an empty default) has it.
    const std::optional<tstring> value = ReadValue(path, section, key);
    if (!value || value->empty())
        return defaultValue;
    return zul::Wtoi(std::u16string_view(*value));
}

bool WritePrivateProfileString(const tstring& section, const tstring& key, const tstring& value,
                               const std::string& path)
{
    return WritePrivateProfileStrings(section, {{key, value}}, path);
}

bool WritePrivateProfileStrings(const tstring& section,
                                const std::vector<std::pair<tstring, tstring>>& entries,
                                const std::string& path, tstring* pWhy)
{
    tstring why;
    const bool bWritten = [&]
    {
        // A line break would split the entry into lines the reader sees differently;
        // a ']' in a section name or '=' in a key could never be found again.
        if (section.empty() || HasLineBreak(section) || section.find(u']') != tstring::npos)
        {
            why = u"the section name cannot be written";
            return false;
        }
        for (const auto& [key, value] : entries)
        {
            if (key.empty() || HasLineBreak(key) || HasLineBreak(value) || key.find(u'=') != tstring::npos)
            {
                why = u"the key " + key + u" cannot be written";
                return false;
            }
        }
        ini_io::ReadResult file = ini_io::ReadWholeFile(path);
        if (file.status == ini_io::ReadStatus::Unreadable)
        {
            why = file.why;
            return false;
        }
        // Every entry goes into one new content, written at once: a run cut
        // short leaves all of them or none, never a mix of old and new.
        std::string content = std::move(file.bytes);
        for (const auto& [key, value] : entries)
            content = Edited(Parse(std::move(content)), section, key, value);
        return ini_io::WriteWholeFile(path, content, why);
    }();
    if (pWhy != nullptr)
        *pWhy = bWritten ? tstring() : why;
    return bWritten;
}

tstring DescribeUnreadableProfile(const std::string& path)
{
    const ini_io::ReadResult file = ini_io::ReadWholeFile(path);
    return file.status == ini_io::ReadStatus::Unreadable ? file.why : tstring();
}

std::string FullProfilePath(const std::string& path)
{
    return ini_io::FullPath(path);
}
