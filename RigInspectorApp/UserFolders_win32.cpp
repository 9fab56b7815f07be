#include "UserFolders.h"

#include <windows.h>

#include <knownfolders.h>
#include <shlobj.h>

#include <cstdlib>

namespace
{
std::filesystem::path KnownFolder(REFKNOWNFOLDERID id)
{
    PWSTR pPath = nullptr;
    std::filesystem::path path;
    if (SUCCEEDED(::SHGetKnownFolderPath(id, 0, nullptr, &pPath)))
        path = pPath;
    ::CoTaskMemFree(pPath);
    return path;
}
} // namespace

std::filesystem::path StateFolder()
{
    if (const wchar_t* overridden = ::_wgetenv(L"RIG_INSPECTOR_STATE_DIR"); overridden && *overridden)
        return overridden;
    const std::filesystem::path local = KnownFolder(FOLDERID_LocalAppData);
    return local.empty() ? local : local / L"Dunmore Nine" / L"Rig Inspector";
}

std::filesystem::path DocumentsFolder()
{
    return KnownFolder(FOLDERID_Documents);
}

bool ReplaceFileAtomically(const std::filesystem::path& from, const std::filesystem::path& to)
{
    return ::MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0;
}
