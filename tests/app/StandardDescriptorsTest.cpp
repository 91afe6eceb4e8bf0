#include "app/StandardDescriptors.h"

#include "support/TestHome.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

using namespace ostrel;

namespace {

TEST(StandardDescriptors, closedOnes_areFilledAndGoOnFailing)
{
    const int status = inForkedChild([] {
        for (const int standard : {0, 1, 2})
            ::close(standard);
        fillClosedStandardDescriptors();
        char byte = 'x';
        for (const int standard : {0, 1, 2}) {
            if (::fcntl(standard, F_GETFD) < 0)
                return 1;
        }
        if (::read(0, &byte, 1) != -1 || ::write(1, &byte, 1) != -1 || ::write(2, &byte, 1) != -1)
            return 2;
        return ::open("/dev/null", O_RDONLY) > 2 ? 0 : 3;
    });
    EXPECT_EQ(status, 0);
}

TEST(StandardDescriptors, openOnes_stayAsTheyAre)
{
    const int status = inForkedChild([] {
        int ends[2] = {-1, -1};
        char byte = 'x';
        if (::pipe(ends) != 0 || ::dup2(ends[0], 0) != 0 || ::dup2(ends[1], 1) != 1)
            return 1;
        fillClosedStandardDescriptors();
        return ::write(1, &byte, 1) == 1 && ::read(0, &byte, 1) == 1 ? 0 : 2;
    });
    EXPECT_EQ(status, 0);
}

} // namespace
