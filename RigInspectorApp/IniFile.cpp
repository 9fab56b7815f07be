// Hand-written: no library reproduces the Windows profile API's rules (default
// for anything missing, the 511-character cut, _wtoi integers, in-place edits).
//
// Rules chosen where that API leaves us free, each with the reason:
// - Encoding: UTF-8, with or without a byte-order mark (skipped when reading,
//   kept when writing). A UTF-16 file with its byte-order mark (FF FE or FE FF)
//   is read and written in its own encoding, as Notepad-made profiles are.
//   Without a mark the file is UTF-8; invalid bytes read as U+FFFD but are
//   never rewritten unless they sit in the one value that is replaced.
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

#include <algorithm>
#include <optional>
#include <string_view>
#include <vector>

namespace
{
constexpr std::size_t kMaxValueChars = 511;
// Enough bytes of a value for the 511-character cut in any encoding: a UTF-8
// character takes at most three bytes per UTF-16 unit, a UTF-16 unit two.
constexpr std::size_t kValueBytesDecoded = 4 * (kMaxValueChars + 1);

enum class Encoding
{
    Utf8,
    Utf16Le,
    Utf16Be
};

/// One line as byte offsets into the file: nothing of it is copied, so a file
/// of millions of lines, or of one very long line, costs its own bytes only.
struct Line
{
    std::size_t begin = 0; // first byte of the content
    std::size_t end = 0;   // one past the content, where the line end starts
    std::size_t next = 0;  // one past the line end
    bool isSection = false;
    bool isKey = false;
    bool isBlank = false;       // nothing but blanks
    std::size_t nameBegin = 0;  // the section name or key, trimmed: its first byte
    std::size_t nameEnd = 0;    // and one past its last
    std::size_t valueStart = 0; // the first byte after '=' and its blanks
};

struct Document
{
    Encoding encoding = Encoding::Utf8;
    std::size_t bomBytes = 0;
    std::size_t limit = 0; // one past the last whole character
    std::string bytes;
};

bool IsBlank(char16_t c)
{
    return c == u' ' || c == u'\t';
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

/// The UTF-16 unit at offset, or for UTF-8 the byte. Every character the
/// syntax uses is ASCII, and a UTF-8 byte below 0x80 is always that character
/// (never part of a longer one), so the syntax is found on the bytes.
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

std::size_t SkipBlanks(const Document& doc, std::size_t from, std::size_t to)
{
    const std::size_t unit = UnitBytes(doc.encoding);
    while (from < to && IsBlank(UnitAt(doc, from)))
        from += unit;
    return from;
}

/// to, moved back over the blanks that end [from, to).
std::size_t DropTrailingBlanks(const Document& doc, std::size_t from, std::size_t to)
{
    const std::size_t unit = UnitBytes(doc.encoding);
    while (to > from && IsBlank(UnitAt(doc, to - unit)))
        to -= unit;
    return to;
}

/// The offset of the first c in [from, to), or to.
std::size_t FindUnit(const Document& doc, std::size_t from, std::size_t to, char16_t c)
{
    const std::size_t unit = UnitBytes(doc.encoding);
    while (from < to && UnitAt(doc, from) != c)
        from += unit;
    return from;
}

void Classify(const Document& doc, Line& line)
{
    if (line.begin == line.end)
    {
        line.isBlank = true;
        return;
    }
    const std::size_t unit = UnitBytes(doc.encoding);
    const std::size_t first = SkipBlanks(doc, line.begin, line.end);
    const std::size_t last = DropTrailingBlanks(doc, first, line.end);
    if (first == last)
    {
        line.isBlank = true;
        return;
    }
    const char16_t lead = UnitAt(doc, first);
    if (lead == u';' || lead == u'#')
        return;
    if (lead == u'[')
    {
        const std::size_t close = FindUnit(doc, first + unit, last, u']');
        if (close != last)
        {
            line.isSection = true;
            line.nameBegin = SkipBlanks(doc, first + unit, close);
            line.nameEnd = DropTrailingBlanks(doc, line.nameBegin, close);
        }
        return;
    }
    const std::size_t equals = FindUnit(doc, line.begin, line.end, u'=');
    if (equals == line.end)
        return;
    line.nameBegin = first;
    line.nameEnd = DropTrailingBlanks(doc, first, equals);
    if (line.nameBegin == line.nameEnd)
        return;
    line.isKey = true;
    line.valueStart = SkipBlanks(doc, equals + unit, line.end);
}

/// Whether the line's name is name, ASCII case ignored. Only a name short
/// enough to be equal is decoded: a key of megabytes is never copied.
bool NameIs(const Document& doc, const Line& line, const tstring& name)
{
    const std::size_t bytes = line.nameEnd - line.nameBegin;
    if (doc.encoding != Encoding::Utf8)
    {
        if (bytes / 2 != name.size())
            return false;
        for (std::size_t i = 0; i < name.size(); ++i)
        {
            if (AsciiLower(UnitAt(doc, line.nameBegin + 2 * i)) != AsciiLower(name[i]))
                return false;
        }
        return true;
    }
    // Each UTF-16 unit decoded takes at most three bytes, invalid ones included.
    if (bytes > 3 * name.size())
        return false;
    return NamesEqual(DecodeRange(doc, line.nameBegin, line.nameEnd), name);
}

/// A dangling odd byte of a UTF-16 file is not a character; it is kept as is.
std::size_t WholeUnitsEnd(const Document& doc)
{
    const std::size_t unit = UnitBytes(doc.encoding);
    return doc.bomBytes + (doc.bytes.size() - doc.bomBytes) / unit * unit;
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
    doc.limit = WholeUnitsEnd(doc);
    return doc;
}

/// Calls visit with each line in turn until it returns false.
template <class Visit> void ForEachLine(const Document& doc, Visit visit)
{
    const std::size_t unit = UnitBytes(doc.encoding);
    std::size_t pos = doc.bomBytes;
    while (pos < doc.limit)
    {
        Line line;
        line.begin = pos;
        std::size_t i = pos;
        if (doc.encoding == Encoding::Utf8)
        {
            // The common case, byte by byte without decoding.
            const char* const bytes = doc.bytes.data();
            while (i < doc.limit && bytes[i] != '\r' && bytes[i] != '\n')
                ++i;
        }
        else
        {
            while (i < doc.limit && UnitAt(doc, i) != u'\r' && UnitAt(doc, i) != u'\n')
                i += unit;
        }
        line.end = i;
        if (i < doc.limit && UnitAt(doc, i) == u'\r')
            i += unit;
        if (i < doc.limit && UnitAt(doc, i) == u'\n')
            i += unit;
        line.next = i;
        Classify(doc, line);
        pos = i;
        if (!visit(line))
            return;
    }
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

/// The value as the reader returns it, cut to the buffer.
tstring ValueOf(const Document& doc, const Line& line)
{
    const std::size_t unit = UnitBytes(doc.encoding);
    std::size_t begin = line.valueStart;
    std::size_t end = DropTrailingBlanks(doc, begin, line.end);
    if (end - begin >= 2 * unit)
    {
        const char16_t quote = UnitAt(doc, begin);
        if ((quote == u'"' || quote == u'\'') && UnitAt(doc, end - unit) == quote)
        {
            begin += unit;
            end -= unit;
        }
    }
    // A character cut in two here lands past what the cut keeps.
    end = std::min(end, begin + kValueBytesDecoded);
    return CutToBuffer(DecodeRange(doc, begin, end));
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
                        inSection = NameIs(doc, line, section);
                    else if (inSection && line.isKey && NameIs(doc, line, key))
                        value = ValueOf(doc, line);
                    return !value;
                });
    return value;
}

bool HasLineBreak(const tstring& text)
{
    return text.find_first_of(u"\r\n") != tstring::npos;
}

/// What one pass over the file finds for an edit of [section] key.
struct EditPlace
{
    std::optional<Line> found;  // the line of the key as the reader finds it
    std::optional<Line> anchor; // the last non-blank line of the section's first occurrence
    std::optional<Line> last;   // the file's last line
    std::string eol;            // the line end the file already uses
};

EditPlace FindEditPlace(const Document& doc, const tstring& section, const tstring& key)
{
    EditPlace place;
    bool inSection = false;
    bool inFirst = false;    // within the first occurrence of the section
    bool bFirstDone = false; // past it
    ForEachLine(doc,
                [&](const Line& line)
                {
                    if (place.eol.empty() && line.next > line.end)
                        place.eol = doc.bytes.substr(line.end, line.next - line.end);
                    place.last = line;
                    if (line.isSection)
                    {
                        inSection = NameIs(doc, line, section);
                        if (inFirst)
                            bFirstDone = true;
                        inFirst = !bFirstDone && inSection;
                        if (inFirst)
                            place.anchor = line;
                    }
                    else
                    {
                        if (inFirst && !line.isBlank)
                            place.anchor = line;
                        if (inSection && !place.found && line.isKey && NameIs(doc, line, key))
                            place.found = line;
                    }
                    return true;
                });
    // A new file gets the Windows line end, since the game reads these files there.
    if (place.eol.empty())
        place.eol = Encode(doc.encoding, u"\r\n");
    return place;
}

/// Sets [section] key to value in the file's own buffer. Edits are made in
/// place, so the file is never held twice when the buffer has room.
void Edit(Document& doc, const tstring& section, const tstring& key, const tstring& value)
{
    const EditPlace place = FindEditPlace(doc, section, key);
    std::string& b = doc.bytes;
    const std::string& eol = place.eol;
    if (place.found)
    {
        // Keep the key's spelling and the blanks around '='; only the value changes.
        b.replace(place.found->valueStart, place.found->end - place.found->valueStart,
                  Encode(doc.encoding, value));
    }
    else if (place.anchor)
    {
        // The new key goes after the last non-blank line of the section's first
        // occurrence, so blank lines that separate sections stay where they are.
        const std::string keyLine = Encode(doc.encoding, key + u"=" + value);
        if (place.anchor->next == place.anchor->end) // the last line, without a line end
            b.insert(place.anchor->end, eol + keyLine + eol);
        else
            b.insert(place.anchor->next, keyLine + eol);
    }
    else
    {
        // The new section goes before a dangling odd byte of a UTF-16 file, which
        // would otherwise shift every character after it by one byte.
        const bool bLastOpen = place.last && place.last->next == place.last->end;
        b.insert(doc.limit, (bLastOpen ? eol : std::string()) + Encode(doc.encoding, u"[" + section + u"]") +
                                eol + Encode(doc.encoding, key + u"=" + value) + eol);
    }
    doc.limit = WholeUnitsEnd(doc);
}

} // namespace

tstring GetPrivateProfileString(const tstring& section, const tstring& key, const tstring& defaultValue,
                                const std::string& path)
{
    std::optional<tstring> value = ReadValue(path, section, key);
    return value ? std::move(*value) : CutToBuffer(defaultValue);
}

int GetPrivateProfileInt(const tstring& section, const tstring& key, int defaultValue,
                         const std::string& path)
{
    // A key present with nothing after '=' reads as missing, as the system's
    // own function (a string read with an empty default) has it. The number
    // is read from the value as the string reader returns it, cut to 511.
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
        // Room for every entry as a new section and key (at most three bytes
        // a character, four a line end), so no edit has to move the file.
        std::size_t room = 0;
        for (const auto& [key, value] : entries)
            room += 3 * (section.size() + key.size() + value.size() + 3) + 3 * 4;
        ini_io::ReadResult file = ini_io::ReadWholeFile(path, room);
        if (file.status == ini_io::ReadStatus::Unreadable)
        {
            why = file.why;
            return false;
        }
        // Every entry goes into one new content, written at once: a run cut
        // short leaves all of them or none, never a mix of old and new.
        Document doc = DetectEncoding(std::move(file.bytes));
        for (const auto& [key, value] : entries)
            Edit(doc, section, key, value);
        return ini_io::WriteWholeFile(path, doc.bytes, why);
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
