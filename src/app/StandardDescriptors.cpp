#include "app/StandardDescriptors.h"

#include <fcntl.h>
#include <unistd.h>

namespace ostrel {

void fillClosedStandardDescriptors()
{
    for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (::fcntl(standard, F_GETFD) >= 0)
            continue;
        // The wrong way round, so that using it fails. The lowest free number is the one that is missing.
        const int direction = standard == STDIN_FILENO ? O_WRONLY : O_RDONLY;
        if (::open("/dev/null", direction) != standard)
            return; // not even /dev/null: what follows fails by itself
    }
}

} // namespace ostrel
