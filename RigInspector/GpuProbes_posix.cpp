#include "GpuProbes_posix.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "share/common/Clock.h"

namespace
{
std::string ReadLine(const std::string& path)
{
    std::ifstream in(path);
    std::string line;
    std::getline(in, line);
    return line;
}

/// The GPU's names from its sysfs device folder. An in-tree driver's version is
/// the kernel's, unless the module states its own.
GpuInfo DescribeDrmDevice(const std::string& device)
{
    GpuInfo gpu;
    gpu.name = ReadLine(device + "product_name");
    const std::string vendor = ReadLine(device + "vendor");
    if (!vendor.empty())
        gpu.vendor = GpuVendorName(static_cast<std::uint32_t>(std::strtoul(vendor.c_str(), nullptr, 16)));
    char target[256] = {};
    const ssize_t n = ::readlink((device + "driver").c_str(), target, sizeof target - 1);
    if (n > 0)
    {
        const std::string link(target, static_cast<std::size_t>(n));
        const std::string driver = link.substr(link.rfind('/') + 1);
        std::string version = ReadLine("/sys/module/" + driver + "/version");
        utsname system{};
        if (version.empty() && ::uname(&system) == 0)
            version = system.release;
        gpu.driverVersion = version.empty() ? std::string() : driver + " " + version;
    }
    return gpu;
}
} // namespace

bool ReadDrmVideoMemory(const std::string& drmRoot, std::uint64_t& totalBytes, std::uint64_t& freeBytes,
                        GpuInfo* pGpu)
{
    totalBytes = 0;
    freeBytes = 0;
    DIR* dir = ::opendir(drmRoot.c_str());
    if (dir == nullptr)
        return false;
    std::vector<std::string> cards;
    while (const dirent* entry = ::readdir(dir))
    {
        const std::string name = entry->d_name;
        // card0, card1, ... but not their connectors (card0-DP-1).
        if (name.size() > 4 && name.compare(0, 4, "card") == 0 &&
            name.find_first_not_of("0123456789", 4) == std::string::npos)
            cards.push_back(name);
    }
    ::closedir(dir);
    std::sort(cards.begin(), cards.end(),
              [](const std::string& a, const std::string& b)
              { return a.size() != b.size() ? a.size() < b.size() : a < b; });
    for (const std::string& card : cards)
    {
        const std::string device = drmRoot + "/" + card + "/device/";
        std::uint64_t total = 0;
        std::uint64_t used = 0;
        std::ifstream totalFile(device + "mem_info_vram_total");
        if (!(totalFile >> total) || total == 0)
            continue;
        std::ifstream usedFile(device + "mem_info_vram_used");
        if (!(usedFile >> used) || used > total)
            used = 0;
        totalBytes = total;
        freeBytes = total - used;
        if (pGpu != nullptr)
        {
            *pGpu = DescribeDrmDevice(device);
            pGpu->memoryBytes = total;
        }
        return true;
    }
    return false;
}

namespace
{
bool HasEntryStartingWith(const std::string& dirPath, const std::vector<std::string>& prefixes)
{
    DIR* dir = ::opendir(dirPath.c_str());
    if (dir == nullptr)
        return false;
    bool found = false;
    while (const dirent* entry = ::readdir(dir))
    {
        const std::string name = entry->d_name;
        for (const std::string& prefix : prefixes)
            found = found || name.compare(0, prefix.size(), prefix) == 0;
        if (found)
            break;
    }
    ::closedir(dir);
    return found;
}
} // namespace

bool HasGpuDeviceNode(const std::string& devRoot)
{
    return HasEntryStartingWith(devRoot + "/dri", {"card", "renderD"}) ||
           HasEntryStartingWith(devRoot, {"nvidia", "dxg"});
}

namespace
{
/// Owns one dlopen handle.
class Library
{
public:
    explicit Library(const char* name) : m_pHandle(::dlopen(name, RTLD_NOW | RTLD_LOCAL)) {}
    ~Library()
    {
        if (m_pHandle != nullptr)
            ::dlclose(m_pHandle);
    }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    explicit operator bool() const { return m_pHandle != nullptr; }
    template <class F> F Get(const char* symbol) const
    {
        return m_pHandle == nullptr ? nullptr : reinterpret_cast<F>(::dlsym(m_pHandle, symbol));
    }

private:
    void* m_pHandle;
};

/// The names a driver gives its GPU; plain arrays, as the child sends the record
/// through a pipe.
struct DriverGpu
{
    char name[128];
    char driver[64];
    std::uint32_t vendorId;
    std::uint32_t integrated;
};

void CopyName(char (&to)[128], const char* from)
{
    std::snprintf(to, sizeof to, "%s", from);
}

// NVIDIA's management library, declared as its stable C interface.
struct NvmlMemory
{
    unsigned long long total;
    unsigned long long free;
    unsigned long long used;
};
using NvmlDevice = struct NvmlDeviceOpaque*;

bool ReadNvmlVideoMemory(std::uint64_t& totalBytes, std::uint64_t& freeBytes, DriverGpu& gpu)
{
    Library nvml("libnvidia-ml.so.1");
    const auto init = nvml.Get<int (*)()>("nvmlInit_v2");
    const auto shutdown = nvml.Get<int (*)()>("nvmlShutdown");
    const auto getCount = nvml.Get<int (*)(unsigned*)>("nvmlDeviceGetCount_v2");
    const auto getHandle = nvml.Get<int (*)(unsigned, NvmlDevice*)>("nvmlDeviceGetHandleByIndex_v2");
    const auto getMemory = nvml.Get<int (*)(NvmlDevice, NvmlMemory*)>("nvmlDeviceGetMemoryInfo");
    const auto getName = nvml.Get<int (*)(NvmlDevice, char*, unsigned)>("nvmlDeviceGetName");
    const auto getDriver = nvml.Get<int (*)(char*, unsigned)>("nvmlSystemGetDriverVersion");
    if (!init || !shutdown || !getCount || !getHandle || !getMemory || init() != 0)
        return false;
    bool ok = false;
    unsigned count = 0;
    NvmlDevice device = nullptr;
    NvmlMemory memory{};
    if (getCount(&count) == 0 && count > 0 && getHandle(0, &device) == 0 && getMemory(device, &memory) == 0 &&
        memory.total > 0)
    {
        totalBytes = memory.total;
        freeBytes = memory.free;
        gpu.vendorId = 0x10de;
        char text[128] = {};
        if (getName && getName(device, text, sizeof text - 1) == 0)
            CopyName(gpu.name, text);
        char version[64] = {};
        if (getDriver && getDriver(version, sizeof version - 1) == 0)
            std::snprintf(gpu.driver, sizeof gpu.driver, "%s", version);
        ok = true;
    }
    shutdown();
    return ok;
}

// The part of the Vulkan C interface the probe uses, declared here so that
// building needs no Vulkan headers; the layouts are fixed by its ABI.
using VkResult = std::int32_t;
using VkInstance = struct VkInstanceOpaque*;
using VkPhysicalDevice = struct VkPhysicalDeviceOpaque*;
using PFN_vkVoidFunction = void (*)();
constexpr std::int32_t kVkStructureApplicationInfo = 0;
constexpr std::int32_t kVkStructureInstanceCreateInfo = 1;
constexpr std::int32_t kVkStructureMemoryProperties2 = 1000059006;
constexpr std::int32_t kVkStructureMemoryBudget = 1000237000;
constexpr std::int32_t kVkPhysicalDeviceTypeIntegrated = 1;
constexpr std::int32_t kVkPhysicalDeviceTypeCpu = 4;
constexpr std::uint32_t kVkHeapDeviceLocal = 1;
constexpr std::uint32_t kVkApiVersion11 = (1u << 22) | (1u << 12);
constexpr std::uint32_t kVkApiVersion10 = 1u << 22;

struct VkApplicationInfo
{
    std::int32_t sType;
    const void* pNext;
    const char* pApplicationName;
    std::uint32_t applicationVersion;
    const char* pEngineName;
    std::uint32_t engineVersion;
    std::uint32_t apiVersion;
};
struct VkInstanceCreateInfo
{
    std::int32_t sType;
    const void* pNext;
    std::uint32_t flags;
    const VkApplicationInfo* pApplicationInfo;
    std::uint32_t enabledLayerCount;
    const char* const* ppEnabledLayerNames;
    std::uint32_t enabledExtensionCount;
    const char* const* ppEnabledExtensionNames;
};
struct VkMemoryType
{
    std::uint32_t propertyFlags;
    std::uint32_t heapIndex;
};
struct VkMemoryHeap
{
    std::uint64_t size;
    std::uint32_t flags;
};
struct VkPhysicalDeviceMemoryProperties
{
    std::uint32_t memoryTypeCount;
    VkMemoryType memoryTypes[32];
    std::uint32_t memoryHeapCount;
    VkMemoryHeap memoryHeaps[16];
};
struct VkPhysicalDeviceMemoryBudgetProperties
{
    std::int32_t sType;
    void* pNext;
    std::uint64_t heapBudget[16];
    std::uint64_t heapUsage[16];
};
struct VkPhysicalDeviceMemoryProperties2
{
    std::int32_t sType;
    void* pNext;
    VkPhysicalDeviceMemoryProperties memoryProperties;
};
struct VkExtensionProperties
{
    char extensionName[256];
    std::uint32_t specVersion;
};
// VkPhysicalDeviceProperties is large; only its first five 32-bit fields are
// read (apiVersion ... deviceType) and the name after them, from a buffer larger than the structure.
struct alignas(8) VkPhysicalDevicePropertiesBuffer
{
    std::uint32_t apiVersion;
    std::uint32_t driverVersion;
    std::uint32_t vendorID;
    std::uint32_t deviceID;
    std::int32_t deviceType;
    char deviceName[256];
    unsigned char rest[4096];
};

/// A driver version as the vendor packs it into 32 bits.
void FormatVulkanDriverVersion(char (&to)[64], std::uint32_t vendorId, std::uint32_t v)
{
    if (vendorId == 0x10de) // NVIDIA: 10.8.8.6 bits
        std::snprintf(to, sizeof to, "%u.%u.%u.%u", v >> 22, (v >> 14) & 0xff, (v >> 6) & 0xff, v & 0x3f);
    else // Mesa and the others: Vulkan's own 10.10.12 bits
        std::snprintf(to, sizeof to, "%u.%u.%u", v >> 22, (v >> 12) & 0x3ff, v & 0xfff);
}

void NameVulkanDevice(DriverGpu& gpu, const VkPhysicalDevicePropertiesBuffer& properties, bool bIntegrated)
{
    const std::size_t length =
        std::min(::strnlen(properties.deviceName, sizeof properties.deviceName), sizeof gpu.name - 1);
    std::memcpy(gpu.name, properties.deviceName, length);
    gpu.name[length] = '\0';
    gpu.vendorId = properties.vendorID;
    FormatVulkanDriverVersion(gpu.driver, properties.vendorID, properties.driverVersion);
    gpu.integrated = bIntegrated ? 1 : 0;
}

bool ReadVulkanVideoMemory(std::uint64_t& totalBytes, std::uint64_t& freeBytes, bool& bSawIntegrated,
                           DriverGpu& gpu)
{
    bSawIntegrated = false;
    Library vulkan("libvulkan.so.1");
    using GetProc = PFN_vkVoidFunction (*)(VkInstance, const char*);
    const auto getProc = vulkan.Get<GetProc>("vkGetInstanceProcAddr");
    if (!getProc)
        return false;
    const auto enumerateVersion =
        reinterpret_cast<VkResult (*)(std::uint32_t*)>(getProc(nullptr, "vkEnumerateInstanceVersion"));
    const auto createInstance =
        reinterpret_cast<VkResult (*)(const VkInstanceCreateInfo*, const void*, VkInstance*)>(
            getProc(nullptr, "vkCreateInstance"));
    if (!createInstance)
        return false;
    std::uint32_t loaderVersion = kVkApiVersion10;
    if (enumerateVersion == nullptr || enumerateVersion(&loaderVersion) != 0)
        loaderVersion = kVkApiVersion10;
    const VkApplicationInfo app{kVkStructureApplicationInfo,
                                nullptr,
                                "rig_inspector",
                                1,
                                nullptr,
                                0,
                                loaderVersion >= kVkApiVersion11 ? kVkApiVersion11 : kVkApiVersion10};
    const VkInstanceCreateInfo create{
        kVkStructureInstanceCreateInfo, nullptr, 0, &app, 0, nullptr, 0, nullptr};
    VkInstance instance = nullptr;
    if (createInstance(&create, nullptr, &instance) != 0 || instance == nullptr)
        return false;

    const auto destroyInstance =
        reinterpret_cast<void (*)(VkInstance, const void*)>(getProc(instance, "vkDestroyInstance"));
    const auto enumerateDevices =
        reinterpret_cast<VkResult (*)(VkInstance, std::uint32_t*, VkPhysicalDevice*)>(
            getProc(instance, "vkEnumeratePhysicalDevices"));
    const auto getProperties =
        reinterpret_cast<void (*)(VkPhysicalDevice, VkPhysicalDevicePropertiesBuffer*)>(
            getProc(instance, "vkGetPhysicalDeviceProperties"));
    const auto getMemory = reinterpret_cast<void (*)(VkPhysicalDevice, VkPhysicalDeviceMemoryProperties*)>(
        getProc(instance, "vkGetPhysicalDeviceMemoryProperties"));
    const auto getMemory2 = reinterpret_cast<void (*)(VkPhysicalDevice, VkPhysicalDeviceMemoryProperties2*)>(
        getProc(instance, "vkGetPhysicalDeviceMemoryProperties2"));
    const auto enumerateExtensions =
        reinterpret_cast<VkResult (*)(VkPhysicalDevice, const char*, std::uint32_t*, VkExtensionProperties*)>(
            getProc(instance, "vkEnumerateDeviceExtensionProperties"));

    bool ok = false;
    std::uint32_t count = 0;
    if (destroyInstance && enumerateDevices && getProperties && getMemory &&
        enumerateDevices(instance, &count, nullptr) == 0 && count > 0)
    {
        std::vector<VkPhysicalDevice> devices(count);
        if (enumerateDevices(instance, &count, devices.data()) >= 0)
        {
            devices.resize(count);
            for (VkPhysicalDevice device : devices)
            {
                auto properties = std::make_unique<VkPhysicalDevicePropertiesBuffer>();
                getProperties(device, properties.get());
                if (properties->deviceType == kVkPhysicalDeviceTypeCpu)
                    continue; // a software renderer's heap is system memory
                // An integrated GPU's device-local heap is its share of system
                // RAM, not memory of its own: DirectDraw's local video memory
                // never counted it, and neither do we.
                if (properties->deviceType == kVkPhysicalDeviceTypeIntegrated)
                {
                    if (!bSawIntegrated)
                        NameVulkanDevice(gpu, *properties, true);
                    bSawIntegrated = true;
                    continue;
                }
                VkPhysicalDeviceMemoryProperties memory{};
                getMemory(device, &memory);
                std::uint64_t total = 0;
                for (std::uint32_t h = 0; h < memory.memoryHeapCount && h < 16; ++h)
                {
                    if (memory.memoryHeaps[h].flags & kVkHeapDeviceLocal)
                        total += memory.memoryHeaps[h].size;
                }
                if (total == 0)
                    continue;
                NameVulkanDevice(gpu, *properties, false);
                totalBytes = total;
                freeBytes = 0; // unknown unless the driver reports its budget
                bool hasBudget = false;
                std::uint32_t extensionCount = 0;
                if (enumerateExtensions &&
                    enumerateExtensions(device, nullptr, &extensionCount, nullptr) == 0)
                {
                    std::vector<VkExtensionProperties> extensions(extensionCount);
                    if (enumerateExtensions(device, nullptr, &extensionCount, extensions.data()) >= 0)
                    {
                        extensions.resize(extensionCount);
                        for (const VkExtensionProperties& e : extensions)
                            hasBudget =
                                hasBudget || std::strcmp(e.extensionName, "VK_EXT_memory_budget") == 0;
                    }
                }
                if (hasBudget && getMemory2 && properties->apiVersion >= kVkApiVersion11 &&
                    app.apiVersion >= kVkApiVersion11)
                {
                    VkPhysicalDeviceMemoryBudgetProperties budget{};
                    budget.sType = kVkStructureMemoryBudget;
                    VkPhysicalDeviceMemoryProperties2 memory2{};
                    memory2.sType = kVkStructureMemoryProperties2;
                    memory2.pNext = &budget;
                    getMemory2(device, &memory2);
                    std::uint64_t free = 0;
                    for (std::uint32_t h = 0; h < memory2.memoryProperties.memoryHeapCount && h < 16; ++h)
                    {
                        if ((memory2.memoryProperties.memoryHeaps[h].flags & kVkHeapDeviceLocal) &&
                            budget.heapBudget[h] > budget.heapUsage[h])
                            free += budget.heapBudget[h] - budget.heapUsage[h];
                    }
                    freeBytes = free;
                }
                ok = true;
                break;
            }
        }
    }
    if (destroyInstance)
        destroyInstance(instance, nullptr);
    return ok;
}

} // namespace

namespace
{
struct ChildAnswer
{
    std::uint64_t ok;
    std::uint64_t total;
    std::uint64_t free;
    std::uint64_t integrated; // only an integrated GPU answered
    DriverGpu gpu;
};

// Loading the GPU libraries loads every installed driver: measured here, the
// Vulkan loader with Mesa's drivers took 130 ms and added 58 MB to the
// process, plus allocations a leak checker reports, and a broken driver can
// hang. A short-lived child (about the same 130 ms) keeps all that out of the
// analyzer, and a time-out bounds it.
constexpr int kChildTimeoutMs = 5000;

} // namespace

bool ReadDriverVideoMemoryInChild(std::uint64_t& totalBytes, std::uint64_t& freeBytes, bool& bIntegratedOnly,
                                  std::optional<GpuInfo>& gpu)
{
    bIntegratedOnly = false;
    gpu.reset();
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0)
        return false;
    const pid_t pid = ::fork();
    if (pid < 0)
    {
        ::close(fds[0]);
        ::close(fds[1]);
        return false;
    }
    if (pid == 0)
    {
        // Drivers print warnings; they must not reach our output (stdout may be JSON).
        const int devNull = ::open("/dev/null", O_WRONLY);
        if (devNull >= 0)
        {
            ::dup2(devNull, STDOUT_FILENO);
            ::dup2(devNull, STDERR_FILENO);
        }
        ChildAnswer answer{};
        bool bSawIntegrated = false;
        answer.ok = (ReadNvmlVideoMemory(answer.total, answer.free, answer.gpu) ||
                     ReadVulkanVideoMemory(answer.total, answer.free, bSawIntegrated, answer.gpu))
                        ? 1
                        : 0;
        answer.integrated = answer.ok == 0 && bSawIntegrated ? 1 : 0;
        (void)!::write(fds[1], &answer, sizeof answer);
        ::_exit(0);
    }
    ::close(fds[1]);
    ChildAnswer answer{};
    std::size_t got = 0;
    const std::uint32_t start = zul::GetTickCount();
    for (;;)
    {
        const std::uint32_t elapsed = zul::GetTickCount() - start;
        if (got == sizeof answer || elapsed >= static_cast<std::uint32_t>(kChildTimeoutMs))
            break;
        pollfd p{fds[0], POLLIN, 0};
        const int ready = ::poll(&p, 1, kChildTimeoutMs - static_cast<int>(elapsed));
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready <= 0)
            break;
        const ssize_t n = ::read(fds[0], reinterpret_cast<char*>(&answer) + got, sizeof answer - got);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        got += static_cast<std::size_t>(n);
    }
    ::close(fds[0]);
    if (got != sizeof answer)
        ::kill(pid, SIGKILL);
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR)
    {
    }
    if (got != sizeof answer)
        return false;
    bIntegratedOnly = answer.integrated != 0;
    if (answer.ok != 0 || bIntegratedOnly)
    {
        answer.gpu.name[sizeof answer.gpu.name - 1] = '\0';
        answer.gpu.driver[sizeof answer.gpu.driver - 1] = '\0';
        GpuInfo& found = gpu.emplace();
        found.name = answer.gpu.name;
        found.vendor = answer.gpu.vendorId != 0 ? GpuVendorName(answer.gpu.vendorId) : std::string();
        found.driverVersion = answer.gpu.driver;
        found.integrated = bIntegratedOnly;
        found.memoryBytes = answer.ok != 0 ? answer.total : 0;
    }
    if (answer.ok == 0)
        return false;
    totalBytes = answer.total;
    freeBytes = answer.free;
    return true;
}
