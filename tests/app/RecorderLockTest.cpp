#include "app/RecorderLock.h"

#include "base/Files.h"
#include "support/Printers.h"
#include "support/TestHome.h"

#include <QCoreApplication>
#include <QFile>

#include <gtest/gtest.h>

using namespace ostrel;

namespace {

TEST(RecorderLock, nobodyRecords_hasNoHolderAndMakesNoFile)
{
    const TestHome home;
    EXPECT_FALSE(RecorderLock::holder().has_value());
    EXPECT_FALSE(QFile::exists(home.path(QStringLiteral(".ostrel"))));
}

TEST(RecorderLock, heldLock_tellsItsHolderAndStaysHeld)
{
    const TestHome home;
    const auto lock = RecorderLock::acquire();
    ASSERT_TRUE(lock.has_value());
    const auto holder = RecorderLock::holder();
    ASSERT_TRUE(holder.has_value());
    EXPECT_EQ(holder->processId, QCoreApplication::applicationPid());
    EXPECT_EQ(holder->since.size(), qsizetype(qstrlen("2026-11-21T09:30:05")));
    EXPECT_TRUE(RecorderLock::holder().has_value()) << "looking changes nothing";
    EXPECT_FALSE(RecorderLock::acquire().has_value());
}

TEST(RecorderLock, signatureOfAKilledRecorder_isNoHolder)
{
    const TestHome home;
    ASSERT_TRUE(writeFileAtomically(RecorderLock::file(), "1 2026-11-21T09:30:05\n").has_value());
    EXPECT_FALSE(RecorderLock::holder().has_value());
}

TEST(RecorderLock, heldByACommand_isNoRecorderAndNamesWhatItIs)
{
    const TestHome home;
    const auto lock = RecorderLock::acquire(RecorderLock::Purpose::Command);
    ASSERT_TRUE(lock.has_value());
    EXPECT_FALSE(RecorderLock::holder().has_value()) << "nobody records";
    const auto second = RecorderLock::acquire();
    ASSERT_FALSE(second.has_value());
    EXPECT_TRUE(RecorderLock::isHeldByAnother(second.error()));
    const QString words = second.error().localizedDescription;
    EXPECT_TRUE(words.startsWith(QStringLiteral("Another command of Tamsk Ostrel is at work (process %1, since ")
                                     .arg(QCoreApplication::applicationPid())))
        << words.toStdString();
}

TEST(RecorderLock, lockFileThatCannotBeMade_isNotHeldByAnother)
{
    const TestHome home;
    ASSERT_TRUE(writeFileAtomically(home.path(QStringLiteral(".ostrel")), {}).has_value());
    const auto lock = RecorderLock::acquire();
    ASSERT_FALSE(lock.has_value());
    EXPECT_FALSE(RecorderLock::isHeldByAnother(lock.error()));
}

TEST(RecorderLock, releasedLock_hasNoHolder)
{
    const TestHome home;
    {
        const auto lock = RecorderLock::acquire();
        ASSERT_TRUE(lock.has_value());
    }
    EXPECT_FALSE(RecorderLock::holder().has_value());
}

TEST(RecorderLock, kernelListThatCannotBeRead_isNoHolder)
{
    const TestHome home;
    const auto lock = RecorderLock::acquire();
    ASSERT_TRUE(lock.has_value());
    EXPECT_FALSE(RecorderLock::holder(home.path(QStringLiteral("none"))).has_value());
}

} // namespace
