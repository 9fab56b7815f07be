#include "ExtendedCookies.h"

#include <sys/random.h>

#include <cerrno>
#include <system_error>

CookieJar::Key RandomCookieKey()
{
    CookieJar::Key key{};
    std::size_t have = 0;
    // getrandom blocks only until the pool is first seeded, at boot; it may
    // return fewer bytes when a signal arrives.
    for (int tries = 0; have < key.size() && tries < 16; ++tries)
    {
        const ssize_t n = ::getrandom(key.data() + have, key.size() - have, 0);
        if (n > 0)
            have += static_cast<std::size_t>(n);
        else if (errno != EINTR)
            break;
    }
    if (have < key.size())
        throw std::system_error(errno, std::generic_category(), "getrandom");
    return key;
}
