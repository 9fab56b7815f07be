#include "FileLimit.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

std::uint64_t RaiseOpenFileLimit(std::uint64_t wanted)
{
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return 0;
    if (limit.rlim_cur != RLIM_INFINITY && limit.rlim_cur < wanted)
    {
        rlimit raised = limit;
        raised.rlim_cur =
            (limit.rlim_max == RLIM_INFINITY || limit.rlim_max > wanted) ? wanted : limit.rlim_max;
        if (setrlimit(RLIMIT_NOFILE, &raised) == 0)
            limit = raised;
    }
    return limit.rlim_cur == RLIM_INFINITY ? wanted : static_cast<std::uint64_t>(limit.rlim_cur);
}

DescriptorReserve::DescriptorReserve() : m_Fd(::open("/dev/null", O_RDONLY | O_CLOEXEC)) {}

DescriptorReserve::~DescriptorReserve()
{
    if (m_Fd >= 0)
        ::close(m_Fd);
}

bool DescriptorReserve::RefuseOne(int listenFd)
{
    if (m_Fd < 0)
        m_Fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (m_Fd < 0)
        return false;
    ::close(m_Fd);
    const int connection = ::accept4(listenFd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (connection >= 0)
        ::close(connection);
    m_Fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    return connection >= 0;
}
