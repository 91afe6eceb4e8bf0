#include "app/EndingLimit.h"
#include "app/CommandResult.h"
#include "base/Files.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <unistd.h>

using namespace ostrel;
using namespace std::chrono_literals;
using testing::ExitedWithCode;

namespace {

constexpr int byItself = 3;

/// Ends by itself some seconds later, unless the limit comes before.
[[noreturn]] void hang()
{
    ::sleep(20); // in the child of a death test, which the limit is to end
    std::_Exit(byItself);
}

/// Another program, as a file that can be run: it ends with status 7 when a signal of the timer's reaches it.
class EndingLimitDeathTest : public testing::Test
{
protected:
    EndingLimitDeathTest()
    {
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        const auto written = writeFileAtomically(m_successor, "#!/bin/sh\ntrap 'exit 7' ALRM\nkill -ALRM $$\nexit 8\n");
        EXPECT_TRUE(written);
        QFile::setPermissions(m_successor, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }

    QTemporaryDir m_folder;
    const QString m_successor = m_folder.filePath(QStringLiteral("successor"));
};

TEST_F(EndingLimitDeathTest, timeThatIsOver_endsTheProcessAndSaysSo)
{
    const auto hangForever = [] {
        const EndingLimit limit(50ms);
        EndingLimit::begin();
        hang();
    };
    EXPECT_EXIT(hangForever(), ExitedWithCode(ExitFailed), "not everything came to its end in time");
}

TEST_F(EndingLimitDeathTest, successor_isBecomeInsteadAndHearsSignals)
{
    const auto hangForever = [this] {
        const EndingLimit limit(50ms);
        EndingLimit::setSuccessor(m_successor);
        EndingLimit::begin();
        hang();
    };
    EXPECT_EXIT(hangForever(), ExitedWithCode(7), "");
}

TEST_F(EndingLimitDeathTest, successorThatIsNotThere_endsTheProcess)
{
    const auto hangForever = [this] {
        const EndingLimit limit(50ms);
        EndingLimit::setSuccessor(m_folder.filePath(QStringLiteral("none")));
        EndingLimit::begin();
        hang();
    };
    EXPECT_EXIT(hangForever(), ExitedWithCode(ExitFailed), "not everything came to its end in time");
}

TEST_F(EndingLimitDeathTest, successorThatWasStartedOtherwise_isBecomeNoMore)
{
    const auto hangForever = [this] {
        const EndingLimit limit(50ms);
        EndingLimit::setSuccessor(m_successor);
        EndingLimit::setSuccessor({});
        EndingLimit::begin();
        hang();
    };
    EXPECT_EXIT(hangForever(), ExitedWithCode(ExitFailed), "not everything came to its end in time");
}

TEST_F(EndingLimitDeathTest, limitThatHasGone_endsNothing)
{
    const auto endByItself = [] {
        {
            const EndingLimit limit(50ms);
            EndingLimit::begin();
        }
        ::usleep(200'000); // what would come comes by now
        std::_Exit(byItself);
    };
    EXPECT_EXIT(endByItself(), ExitedWithCode(byItself), "");
}

} // namespace
