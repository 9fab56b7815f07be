#include "LogOutput.h"

#include <cerrno>
#include <poll.h>
#include <unistd.h>

bool WriteLogNow(const std::string& text)
{
    // Writable means room for PIPE_BUF bytes in a pipe, and for a short line
    // in a socket: a line that fits never blocks. Longer text may.
    pollfd out{STDOUT_FILENO, POLLOUT, 0};
    if (::poll(&out, 1, 0) != 1 || (out.revents & POLLOUT) == 0)
        return false;
    std::size_t done = 0;
    while (done < text.size())
    {
        const ssize_t n = ::write(STDOUT_FILENO, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return done > 0;
        done += static_cast<std::size_t>(n);
    }
    return true;
}
