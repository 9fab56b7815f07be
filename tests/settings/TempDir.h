#pragma once
// A private temporary folder per test, removed with everything in it, so no
// test depends on the directory it was started in.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>
#include <string>

class TempDir
{
public:
    TempDir()
    {
        // create_directory is false for a folder that exists: a fresh name is
        // one nobody else made, as mkdtemp's would be.
        std::random_device seed;
        std::mt19937_64 random(seed());
        const std::filesystem::path base = std::filesystem::temp_directory_path();
        for (int attempt = 0; attempt < 100 && m_Path.empty(); ++attempt)
        {
            const std::filesystem::path candidate = base / ("rig_test_" + std::to_string(random()));
            if (std::filesystem::create_directory(candidate))
                m_Path = candidate.generic_string();
        }
        if (m_Path.empty())
            throw std::runtime_error("no temporary folder");
    }
    ~TempDir()
    {
        std::error_code ec; // a test may have left a read-only folder inside
        std::filesystem::permissions(m_Path, std::filesystem::perms::owner_all,
                                     std::filesystem::perm_options::add, ec);
        std::filesystem::remove_all(m_Path, ec);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& Path() const { return m_Path; }
    std::string File(const std::string& name) const { return m_Path + "/" + name; }

    static void Write(const std::string& path, const std::string& bytes)
    {
        std::ofstream(path, std::ios::binary) << bytes;
    }
    static std::string Read(const std::string& path)
    {
        std::ifstream in(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }

private:
    std::string m_Path;
};
