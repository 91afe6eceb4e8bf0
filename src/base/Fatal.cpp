#include "base/Fatal.h"

#include <cstdio>
#include <cstdlib>

namespace ostrel {

void fatal(const char *what)
{
    std::fprintf(stderr, "ostrel: fatal: %s\n", what);
    std::fflush(stderr);
    std::abort();
}

} // namespace ostrel
