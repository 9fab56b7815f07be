#pragma once
// The platform's way to send one probe with a given TTL towards the test
// server and to hear who answered, without administrator rights. Every probe
// of one tracer goes out as the same flow (addresses, ports, protocol and
// checksum), so that routers that spread flows over several paths keep this
// one on a single path.
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

struct PathProbeAnswer
{
    std::uint16_t seq = 0;
    std::uint32_t from = 0; // IPv4, host order
    bool bFromTarget = false;
    std::chrono::steady_clock::time_point at;
};

struct PathProbeError
{
    std::string code; // "path_no_permission" or "path_no_socket"
    std::string message;
};

class PathProbe
{
public:
    virtual ~PathProbe() = default;
    /// target: IPv4, host order.
    virtual std::optional<PathProbeError> Open(std::uint32_t target) = 0;
    /// False when the probe could not leave (a full queue, say): it is not
    /// counted, and the tracer sends it again later.
    virtual bool Send(int ttl, std::uint16_t seq) = 0;
    /// Waits for answers until `until` at most; returns as soon as any came.
    virtual std::vector<PathProbeAnswer> Receive(std::chrono::steady_clock::time_point until) = 0;
};

std::unique_ptr<PathProbe> MakePathProbe();
