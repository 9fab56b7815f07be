// Linux: the socket inodes bound to the port come from /proc/net/udp and
// udp6 (this network namespace's view), their owners from the descriptors in
// /proc/<pid>/fd.
#include "PortOwners.h"

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

#include "share/common/StringUtil.h"

namespace
{
void CollectInodes(const char* table, std::uint16_t port, std::set<std::string>& inodes)
{
    std::ifstream in(table);
    std::string line;
    std::getline(in, line); // the column names
    while (std::getline(in, line))
    {
        std::istringstream fields(line);
        std::string slot, local, remote, state, queues, timer, retransmits, uid, timeout, inode;
        if (!(fields >> slot >> local >> remote >> state >> queues >> timer >> retransmits >> uid >>
              timeout >> inode))
            continue;
        const std::size_t colon = local.rfind(':');
        if (colon == std::string::npos)
            continue;
        if (std::strtoul(local.c_str() + colon + 1, nullptr, 16) == port && inode != "0")
            inodes.insert("socket:[" + inode + "]");
    }
}

std::string ReadLink(const std::string& path)
{
    char target[4096];
    const ssize_t n = ::readlink(path.c_str(), target, sizeof target - 1);
    return n > 0 ? std::string(target, static_cast<std::size_t>(n)) : std::string();
}

bool HoldsOneOf(const std::string& procDir, const std::set<std::string>& inodes)
{
    DIR* fds = ::opendir((procDir + "/fd").c_str());
    if (fds == nullptr)
        return false;
    bool bFound = false;
    while (const dirent* entry = ::readdir(fds))
    {
        if (entry->d_name[0] != '.' && inodes.count(ReadLink(procDir + "/fd/" + entry->d_name)) > 0)
        {
            bFound = true;
            break;
        }
    }
    ::closedir(fds);
    return bFound;
}

tstring ExecutableName(const std::string& procDir)
{
    std::string path = ReadLink(procDir + "/exe");
    const std::string deleted = " (deleted)";
    if (path.size() > deleted.size() &&
        path.compare(path.size() - deleted.size(), deleted.size(), deleted) == 0)
        path.resize(path.size() - deleted.size());
    if (path.empty())
    {
        // Another user's process hides its executable but not its name.
        std::ifstream comm(procDir + "/comm");
        std::getline(comm, path);
    }
    const std::size_t slash = path.rfind('/');
    return zul::Utf8ToUtf16(slash == std::string::npos ? path : path.substr(slash + 1));
}
} // namespace

std::vector<PortOwner> FindUdpPortOwners(std::uint16_t port)
{
    std::set<std::string> inodes;
    CollectInodes("/proc/net/udp", port, inodes);
    CollectInodes("/proc/net/udp6", port, inodes);
    std::vector<PortOwner> owners;
    if (inodes.empty())
        return owners;
    DIR* proc = ::opendir("/proc");
    if (proc == nullptr)
        return owners;
    while (const dirent* entry = ::readdir(proc))
    {
        char* end = nullptr;
        const unsigned long pid = std::strtoul(entry->d_name, &end, 10);
        if (end == entry->d_name || *end != '\0')
            continue;
        const std::string procDir = std::string("/proc/") + entry->d_name;
        if (HoldsOneOf(procDir, inodes))
            owners.push_back({static_cast<std::uint32_t>(pid), ExecutableName(procDir)});
    }
    ::closedir(proc);
    std::sort(owners.begin(), owners.end(),
              [](const PortOwner& a, const PortOwner& b) { return a.pid < b.pid; });
    return owners;
}
