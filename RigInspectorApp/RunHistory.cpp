#include "RunHistory.h"

#include <fstream>
#include <iterator>
#include <random>
#include <string_view>

#include "UserFolders.h"

namespace
{
std::string PathText(const std::filesystem::path& path)
{
    const std::u8string text = path.u8string();
    return std::string(text.begin(), text.end());
}

std::string ReadAll(const std::filesystem::path& file)
{
    std::ifstream in(file, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

/// The lines that look whole: an object from its brace to its brace. bTorn
/// when any did not (only a last line cut by a crash should). Reading parses
/// each line in full; appending needs no more than this, and stays fast.
std::vector<std::string_view> WholeLines(std::string_view text, bool& bTorn)
{
    std::vector<std::string_view> lines;
    bTorn = !text.empty() && text.back() != '\n';
    while (!text.empty())
    {
        const std::size_t end = text.find('\n');
        const std::string_view line = text.substr(0, end);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        if (line.empty())
            continue;
        if (line.front() == '{' && line.back() == '}')
            lines.push_back(line);
        else
            bTorn = true;
    }
    return lines;
}

bool WriteWhole(const std::filesystem::path& file, const std::string& content, std::ios::openmode mode)
{
    std::ofstream out(file, std::ios::binary | mode);
    out.write(content.data(), static_cast<std::streamsize>(content.size()));
    out.close();
    return static_cast<bool>(out);
}
} // namespace

RunHistory::RunHistory(std::filesystem::path folder)
    : m_Folder(std::move(folder)), m_File(m_Folder / kFileName)
{
}

std::vector<nlohmann::ordered_json> RunHistory::Load() const
{
    const std::string text = ReadAll(m_File);
    bool bTorn = false;
    std::vector<nlohmann::ordered_json> runs;
    for (std::string_view line : WholeLines(text, bTorn))
    {
        nlohmann::ordered_json run = nlohmann::ordered_json::parse(line, nullptr, false);
        if (run.is_object())
            runs.push_back(std::move(run));
    }
    return runs;
}

bool RunHistory::Append(const nlohmann::ordered_json& run, std::string& why) const
{
    if (m_Folder.empty())
    {
        why = "no per-user folder is known";
        return false;
    }
    std::error_code ec;
    std::filesystem::create_directories(m_Folder, ec);
    if (ec)
    {
        why = "cannot create " + PathText(m_Folder) + ": " + ec.message();
        return false;
    }
    const std::string line = run.dump() + "\n";
    const std::string text = ReadAll(m_File);
    bool bTorn = false;
    const std::vector<std::string_view> lines = WholeLines(text, bTorn);

    // The common case: one short write at the end, which a crash can only
    // tear at the last line.
    if (!bTorn && lines.size() < kKeptRuns)
    {
        if (WriteWhole(m_File, line, std::ios::app))
            return true;
        why = "cannot write " + PathText(m_File);
        return false;
    }

    std::string kept;
    const std::size_t first = lines.size() >= kKeptRuns ? lines.size() - (kKeptRuns - 1) : 0;
    for (std::size_t i = first; i < lines.size(); ++i)
        kept.append(lines[i]).push_back('\n');
    kept += line;
    // A name of its own, so two runs trimming at once never share a file.
    const std::filesystem::path temp =
        m_Folder / (std::string(kFileName) + "." + std::to_string(std::random_device()()) + ".tmp");
    if (!WriteWhole(temp, kept, std::ios::trunc) || !ReplaceFileAtomically(temp, m_File))
    {
        std::filesystem::remove(temp, ec);
        why = "cannot replace " + PathText(m_File);
        return false;
    }
    return true;
}
