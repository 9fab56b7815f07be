#pragma once
// What each check measured and decided. The report lines, the terminal text
// and the JSON of the headless front end are all made from these records, so
// the three never disagree. Each check resets its record when it starts and
// sets `ran` when it has written its verdict.
#include <cstdint>
#include <optional>
#include <vector>

#include "Connection.h"
#include "Gpu.h"
#include "PortOwners.h"

#include "share/common/TString.h"

struct SystemResult
{
    bool ran = false;
    bool osPassed = false;
    std::uint32_t cpuHeadingMhz = 0; // first measurement (shown in the heading)
    std::int32_t cpuSpeedMhz = 0;    // second measurement (the verdict's)
    bool cpuPassed = false;
    bool videoProbeOk = false;       // false: the verdict is "error!"
    std::uint32_t videoMemoryMb = 0; // report megabytes (1,024,000 bytes)
    bool videoPassed = false;        // false also when the probe failed
    std::uint32_t systemMemoryMb = 0;
    bool memoryPassed = false;
    std::uint64_t systemMemoryBytes = 0; // not saturated at 4 GiB as the report's figure is
    // The GPU by name, where the video probe found one.
    std::optional<GpuInfo> gpu{};
};

struct FirewallResult
{
    bool ran = false;
    bool comFailed = false; // "Failed to init COM" was printed
    std::int32_t comHresult = 0;
    bool profileFound = false; // a firewall manager answered
    bool passed = false;       // no red "failed" was printed
    int result = 0;            // 3: offer the "Windows Firewall off" button
};

struct TcpResult
{
    bool ran = false;
    bool connected = false;
    bool uploadCompleted = false;
    bool downloadCompleted = false; // all 524,288 bytes arrived
    std::uint32_t uploadBytes = 0;
    std::uint32_t downloadBytes = 0;
    double uploadBytesPerSec = 0.0;
    double downloadBytesPerSec = 0.0;
    float uploadKBs = 0.0f; // as printed: bytes/s x (1/1024) in single precision
    float downloadKBs = 0.0f;
    bool passed = false; // no failure line was printed
    tstring failure;     // what escaped the worker, if anything did
};

struct UdpResult
{
    bool ran = false;
    int sent = 0;
    int answered = 0;
    int lost = 0;
    double lossPercent = 0.0;
    std::int32_t minPingMs = -1;
    std::int32_t avgPingMs = -1;
    std::int32_t maxPingMs = -1;
    std::uint32_t ignored = 0;         // datagrams on the pong port that answered no ping
    std::uint32_t malformed = 0;       // of those: not a pong, or too short to hold
    std::uint32_t unknownSequence = 0; // of those: a sequence number never sent
    std::uint32_t badRoundTrip = 0;    // of those: tick or round trip 0 or below
    std::uint32_t duplicates = 0;      // valid pongs for a ping already answered
    bool pongPortBound = true;         // false: another program held port 20000
    bool passed = false;               // nothing was lost
    tstring failure;                   // what escaped the worker, if anything did
    // The pong port, and who held it when it could not be bound, as far as the system says.
    std::uint16_t pongPort = 0;
    std::vector<PortOwner> pongPortOwners{};
};

struct PortsResult
{
    bool ran = false;
    std::int32_t firstPort = 0; // m_CheckPortMin
    std::int32_t endPort = 0;   // m_CheckPortMax (not probed)
    int probed = 0;
    std::vector<std::int32_t> busyPorts;
    bool passed = false; // no port was busy
};

struct CheckResults
{
    SystemResult system;
    FirewallResult firewall;
    TcpResult tcp;
    UdpResult udp;
    PortsResult ports;
    // The way to the UDP test's host.
    std::optional<ConnectionInfo> connection{};
};
