#include "platform/wlroots/PrivateCover.h"

#include "base/Fault.h"
#include "support/LogRecorder.h"

#include <gtest/gtest.h>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

const QRect here(0, 0, 10, 10);
const QRect there(50, 20, 10, 10);
const QRect between(0, 0, 60, 30);

/// A compositor whose answers follow each other; the last one stays. Each question takes 100 ms by the cover's clock.
class PrivateCoverTest : public testing::Test
{
protected:
    using Answer = std::optional<QList<QRect>>;

    void tell(const QList<Answer> &answers) { m_answers = answers; }

    QList<Answer> m_answers{QList<QRect>{}};
    QList<qint32> m_processes;
    int m_questions = 0;
    std::chrono::milliseconds m_now{};
    PrivateCover m_cover{[this](const QList<qint32> &processes) {
                             ++m_questions;
                             m_now += 100ms;
                             m_processes = processes;
                             return m_answers.size() > 1 ? m_answers.takeFirst() : m_answers.first();
                         },
                         {.monotonicTime = [this] { return m_now; }}};
};

TEST_F(PrivateCoverTest, nothingPrivate_coversNothingAndDoesNotWait)
{
    EXPECT_EQ(m_cover.before(), QList<QRect>());
    EXPECT_EQ(m_cover.after(), QList<QRect>());
    EXPECT_EQ(m_questions, 2);
}

TEST_F(PrivateCoverTest, windowThatIsThere_isWaitedForOnce)
{
    tell({QList{here}});
    EXPECT_EQ(m_cover.before(), QList{here});
    EXPECT_GE(m_now, 450ms);
    m_questions = 0;
    EXPECT_EQ(m_cover.after(), QList{here});
    EXPECT_EQ(m_cover.before(), QList{here});
    EXPECT_EQ(m_questions, 2);
}

TEST_F(PrivateCoverTest, windowThatMovesWhileThePictureIsTaken_coversAllBetween)
{
    tell({QList{here}});
    ASSERT_TRUE(m_cover.before());
    tell({QList{there}});
    EXPECT_EQ(m_cover.after(), QList{between});
    EXPECT_EQ(m_cover.before(), QList{there}) << "after it has come to rest";
}

TEST_F(PrivateCoverTest, windowThatAppearsWhileThePictureIsTaken_isCovered)
{
    ASSERT_TRUE(m_cover.before());
    tell({QList{here}});
    EXPECT_EQ(m_cover.after(), QList{here});
}

TEST_F(PrivateCoverTest, windowThatNeverRests_isCoveredWhereverItWas)
{
    tell({QList{here}, QList{there}, QList{here}, QList{there}, QList{here}, QList{there}, QList{here}, QList{there},
          QList{here}, QList{there}, QList{here}, QList{there}, QList{here}});
    EXPECT_EQ(m_cover.before(), QList{between});
    EXPECT_LE(m_now, 1'300ms);
}

TEST_F(PrivateCoverTest, eachChangeOfTheirNumber_isLoggedOnce)
{
    LogRecorder log("com.tamsk.ostrel.ScreenCaptureRecorder");
    ASSERT_TRUE(m_cover.before());
    EXPECT_EQ(log.takeAll(), QStringList());
    const QString words = QStringLiteral("private windows kept out of the pictures by covering their places: ");
    tell({QList{here, there}});
    for (int picture = 0; picture < 3; ++picture) {
        ASSERT_TRUE(m_cover.before());
        ASSERT_TRUE(m_cover.after());
    }
    EXPECT_EQ(log.takeAll(), QStringList(words + QStringLiteral("2")));
    tell({QList<QRect>{}});
    ASSERT_TRUE(m_cover.after());
    EXPECT_EQ(log.takeAll(), QStringList(words + QStringLiteral("0")));
}

TEST_F(PrivateCoverTest, noAnswer_isAnErrorBeforeDuringAndAfter)
{
    tell({std::nullopt});
    EXPECT_TRUE(isFault(m_cover.before().error(), Fault::PictureRefused));
    tell({QList{here}, std::nullopt});
    EXPECT_TRUE(isFault(m_cover.before().error(), Fault::PictureRefused));
    EXPECT_TRUE(isFault(m_cover.after().error(), Fault::PictureRefused));
}

TEST_F(PrivateCoverTest, processesThatAreLeftOut_areAskedForOnce)
{
    m_cover.leaveOut({7, 8});
    m_cover.leaveOut({8});
    ASSERT_TRUE(m_cover.before());
    EXPECT_EQ(m_processes, (QList<qint32>{7, 8}));
}

} // namespace
