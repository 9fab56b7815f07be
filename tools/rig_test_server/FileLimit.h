#pragma once
#include <cstdint>

/// Raises the soft limit on open descriptors towards wanted (never above the
/// hard limit, never lowers it) and returns the soft limit now in force.
std::uint64_t RaiseOpenFileLimit(std::uint64_t wanted);

/// One descriptor kept open for the moment none is left: closed, it makes
/// room to accept a waiting connection and close it at once, so its client
/// is refused instead of waiting in the backlog.
class DescriptorReserve
{
public:
    DescriptorReserve();
    ~DescriptorReserve();
    DescriptorReserve(const DescriptorReserve&) = delete;
    DescriptorReserve& operator=(const DescriptorReserve&) = delete;

    /// Accepts one waiting connection on listenFd and closes it; false when
    /// the reserve is spent (another thread took its place) or none waited.
    bool RefuseOne(int listenFd);

private:
    int m_Fd;
};
