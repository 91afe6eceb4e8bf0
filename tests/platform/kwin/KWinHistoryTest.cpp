#include "platform/kwin/KWinHistory.h"

#include <gtest/gtest.h>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

KWinWindow windowAt(int x, const QString &id = QStringLiteral("a"))
{
    KWinWindow window;
    window.id = id;
    window.isSeen = true;
    window.frame = QRect(x, 0, 10, 10);
    return window;
}

KWinNews newsOf(const QList<KWinWindow> &windows)
{
    return {.monitors = {QRect(0, 0, 100, 100)}, .windows = windows};
}

/// One that has been told for long that there are no windows.
KWinHistory settled()
{
    KWinHistory history;
    history.take(newsOf({}), -5'000ms);
    history.confirm(0ms, false);
    return history;
}

/// Where the windows are, and then where they were.
QList<int> lefts(const KWinHistory &history, std::chrono::milliseconds now)
{
    QList<int> found;
    const auto moments = history.lately(now);
    if (!moments)
        return {-1};
    for (const KWinWindow &window : moments->windows)
        found.push_back(window.frame.x());
    return found;
}

TEST(KWinHistory, withoutNews_isAbsent)
{
    EXPECT_FALSE(KWinHistory().lately(5ms));
}

TEST(KWinHistory, movedWindow_isAtBothPlacesForASecond)
{
    KWinHistory history = settled();
    history.take(newsOf({windowAt(1)}), 0ms);
    history.take(newsOf({windowAt(2)}), 60'000ms);
    EXPECT_EQ(lefts(history, 60'000ms), (QList{2, 1}));
    EXPECT_EQ(lefts(history, 61'000ms), (QList{2, 1}));
    EXPECT_EQ(lefts(history, 61'001ms), (QList{2}));
}

TEST(KWinHistory, windowThatWasMovedAgainAndAgain_isEverywhereItWas)
{
    KWinHistory history = settled();
    for (int i = 0; i < 20; ++i)
        history.take(newsOf({windowAt(i)}), i * 100ms);
    EXPECT_EQ(lefts(history, 1'900ms), (QList{19, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18}));
}

TEST(KWinHistory, windowThatJumps_mayBeAnywhereInBetween)
{
    KWinHistory history = settled();
    history.take(newsOf({windowAt(1)}), 0ms);
    history.take(newsOf({windowAt(50)}), 100ms);
    const auto moments = history.lately(100ms);
    ASSERT_TRUE(moments);
    ASSERT_EQ(moments->windows.size(), 2);
    EXPECT_EQ(moments->windows[0].frame, QRect(50, 0, 10, 10));
    EXPECT_EQ(moments->windows[1].frame, QRect(1, 0, 59, 10));
    EXPECT_FALSE(moments->windows[1].isFlying);
}

TEST(KWinHistory, whileWindowsAreShownElsewhere_allAreFlyingAlsoThoseThatAreNotSeen)
{
    KWinHistory history = settled();
    KWinWindow minimised = windowAt(2, QStringLiteral("b"));
    minimised.isSeen = false;
    history.take(newsOf({windowAt(1), minimised}), 0ms);
    history.confirm(10'000ms, true);
    history.confirm(10'500ms, false);
    const auto during = history.lately(11'000ms);
    ASSERT_TRUE(during);
    ASSERT_EQ(during->windows.size(), 2);
    EXPECT_TRUE(during->windows[0].isFlying);
    EXPECT_TRUE(during->windows[1].isFlying);
    const auto after = history.lately(11'001ms);
    ASSERT_TRUE(after);
    ASSERT_EQ(after->windows.size(), 1);
    EXPECT_FALSE(after->windows[0].isFlying);
}

TEST(KWinHistory, closedWindow_isKnownForASecond)
{
    KWinHistory history = settled();
    history.take(newsOf({windowAt(1)}), 0ms);
    history.take(newsOf({}), 500ms);
    EXPECT_EQ(lefts(history, 1'500ms), (QList{1}));
    EXPECT_EQ(lefts(history, 1'501ms), QList<int>());
}

TEST(KWinHistory, minimisedWindow_isKnownForASecond)
{
    KWinHistory history = settled();
    history.take(newsOf({windowAt(1)}), 0ms);
    KWinWindow minimised = windowAt(1);
    minimised.isSeen = false;
    history.take(newsOf({minimised}), 500ms);
    EXPECT_EQ(lefts(history, 1'500ms), (QList{1}));
    EXPECT_EQ(lefts(history, 1'501ms), QList<int>());
    history.take(newsOf({windowAt(1)}), 9'000ms);
    ASSERT_EQ(lefts(history, 9'000ms), (QList{1, 1}));
    EXPECT_TRUE(history.lately(9'000ms)->windows.last().isFlying) << "it comes from the task bar";
    EXPECT_EQ(lefts(history, 10'001ms), (QList{1}));
}

TEST(KWinHistory, windowThatIsSeenNoMore_fliesForASecond)
{
    KWinHistory history = settled();
    history.take(newsOf({windowAt(1), windowAt(2, QStringLiteral("b"))}), 0ms);
    KWinWindow minimised = windowAt(1);
    minimised.isSeen = false;
    history.take(newsOf({minimised, windowAt(2, QStringLiteral("b"))}), 500ms);
    const auto moments = history.lately(1'500ms);
    ASSERT_TRUE(moments);
    ASSERT_EQ(moments->windows.size(), 2);
    EXPECT_FALSE(moments->windows.first().isFlying);
    EXPECT_TRUE(moments->windows.last().isFlying);
    EXPECT_EQ(moments->windows.last().id, QStringLiteral("a"));
}

TEST(KWinHistory, windowThatIsNotSeen_leavesNothingBehind)
{
    KWinHistory history = settled();
    KWinWindow hidden = windowAt(1);
    hidden.isSeen = false;
    history.take(newsOf({hidden}), 0ms);
    hidden.frame.moveLeft(2);
    history.take(newsOf({hidden}), 100ms);
    history.take(newsOf({}), 200ms);
    EXPECT_EQ(lefts(history, 200ms), QList<int>());
}

TEST(KWinHistory, retitledWindow_hasBothTitlesForASecond)
{
    KWinHistory history = settled();
    KWinWindow secret = windowAt(1);
    secret.title = QStringLiteral("Secret");
    history.take(newsOf({secret}), 0ms);
    history.take(newsOf({windowAt(1)}), 500ms);
    const auto moments = history.lately(1'000ms);
    ASSERT_TRUE(moments);
    ASSERT_EQ(moments->windows.size(), 2);
    EXPECT_EQ(moments->windows.last(), secret);
    EXPECT_EQ(history.lately(1'501ms)->windows.size(), 1);
}

TEST(KWinHistory, newsWithoutAChange_leaveNothingBehind)
{
    KWinHistory history = settled();
    history.take(newsOf({windowAt(1), windowAt(2, QStringLiteral("b"))}), 0ms);
    history.take(newsOf({windowAt(2, QStringLiteral("b")), windowAt(1)}), 10ms);
    EXPECT_EQ(lefts(history, 10ms), (QList{2, 1}));
}

TEST(KWinHistory, forgotten_isAbsentUntilThereWereNewsForASecond)
{
    KWinHistory history = settled();
    history.take(newsOf({windowAt(1)}), 0ms);
    history.forget();
    EXPECT_FALSE(history.lately(0ms));
    history.take(newsOf({windowAt(2)}), 10ms);
    history.confirm(20ms, false);
    EXPECT_FALSE(history.lately(1'009ms)) << "what was there within the last second isn't known";
    EXPECT_EQ(lefts(history, 1'010ms), (QList{2}));
}

TEST(KWinHistory, newsThatNobodyHasConfirmed_areAbsent)
{
    KWinHistory history;
    history.take(newsOf({windowAt(1)}), 0ms);
    EXPECT_FALSE(history.lately(5'000ms));
    history.confirm(4'000ms, false);
    ASSERT_TRUE(history.lately(5'000ms));
    EXPECT_EQ(history.lately(5'000ms)->age, 1'000ms);
}

TEST(KWinHistory, moreChangesThanCanBeKept_areAbsentForASecond)
{
    KWinHistory history = settled();
    for (int i = 0; i <= int(KWinHistory::mostPast); ++i)
        history.take(newsOf({windowAt(i)}), 100ms);
    EXPECT_TRUE(history.lately(100ms));
    history.take(newsOf({windowAt(-5)}), 200ms);
    EXPECT_FALSE(history.lately(200ms));
    EXPECT_FALSE(history.lately(1'199ms));
    EXPECT_EQ(lefts(history, 1'201ms), (QList{-5}));
}

} // namespace
