#include "UserFolders.h"

#include <cstdio>
#include <cstdlib>

namespace
{
std::filesystem::path FromEnvironment(const char* name)
{
    const char* value = std::getenv(name);
    return value != nullptr && *value != '\0' ? std::filesystem::path(value) : std::filesystem::path();
}
} // namespace

std::filesystem::path StateFolder()
{
    if (auto overridden = FromEnvironment("RIG_INSPECTOR_STATE_DIR"); !overridden.empty())
        return overridden;
    // A relative XDG_STATE_HOME is ignored, as the XDG base directory rules have it.
    if (auto state = FromEnvironment("XDG_STATE_HOME"); state.is_absolute())
        return state / "rig-inspector";
    if (auto home = FromEnvironment("HOME"); !home.empty())
        return home / ".local" / "state" / "rig-inspector";
    return {};
}

std::filesystem::path DocumentsFolder()
{
    const std::filesystem::path home = FromEnvironment("HOME");
    if (home.empty())
        return {};
    std::error_code ec;
    if (std::filesystem::is_directory(home / "Documents", ec))
        return home / "Documents";
    return home;
}

bool ReplaceFileAtomically(const std::filesystem::path& from, const std::filesystem::path& to)
{
    return std::rename(from.c_str(), to.c_str()) == 0;
}
