// Preloaded into a test's sway alone. Sway does not start where it could become root again after it has given root up,
// and in a container the tests are root. Being told that it may not change users, it takes itself for an ordinary
// one's.

#include <cerrno>
#include <sys/types.h>

extern "C" {

int setuid(uid_t /*user*/) noexcept
{
    errno = EPERM;
    return -1;
}

int setgid(gid_t /*group*/) noexcept
{
    errno = EPERM;
    return -1;
}
}
