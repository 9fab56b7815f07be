#pragma once
// The run history: one results document a line in history.jsonl, oldest
// first, the last kKeptRuns runs. Nothing of it leaves the machine.
#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

class RunHistory
{
public:
    static constexpr std::size_t kKeptRuns = 100;
    static constexpr char kFileName[] = "history.jsonl";

    explicit RunHistory(std::filesystem::path folder);

    const std::filesystem::path& GetFile() const { return m_File; }

    /// The runs kept, oldest first. A line that is not a JSON object (the
    /// last one torn by a process killed mid-write) is skipped; a missing
    /// file is an empty history.
    std::vector<nlohmann::ordered_json> Load() const;

    /// Adds one run as one line, creating the folder if needed. Beyond
    /// kKeptRuns (or over a torn line) the file is rewritten beside and
    /// swapped in whole, so a reader never sees half of it. False, with the
    /// reason in why, when nothing could be written.
    bool Append(const nlohmann::ordered_json& run, std::string& why) const;

private:
    std::filesystem::path m_Folder;
    std::filesystem::path m_File;
};
