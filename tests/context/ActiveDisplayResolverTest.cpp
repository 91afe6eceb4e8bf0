#include "context/ActiveDisplayResolver.h"
#include "support/Printers.h"

#include <gtest/gtest.h>
#include <limits>

namespace ostrel {
namespace {

using ActiveDisplayResolver::resolve;

ActiveDisplayCandidate candidate(const char *id, const char *label, const QRectF &bounds)
{
    return {.displayId = QString::fromUtf8(id), .displayLabel = QString::fromUtf8(label), .bounds = bounds};
}

/// Two displays of 100 x 80, side by side.
const QList<ActiveDisplayCandidate> pair = {candidate("11", "Display 1 (main)", {0, 0, 100, 80}),
                                            candidate("22", "Display 2", {100, 0, 100, 80})};

ActiveDisplaySelection first(const char *reason)
{
    return {.displayId = QStringLiteral("11"),
            .displayLabel = QStringLiteral("Display 1 (main)"),
            .reason = QString::fromUtf8(reason)};
}

ActiveDisplaySelection second(const char *reason)
{
    return {.displayId = QStringLiteral("22"),
            .displayLabel = QStringLiteral("Display 2"),
            .reason = QString::fromUtf8(reason)};
}

TEST(ActiveDisplayResolver, windowHalfOnBothDisplays_isOnTheEarlier)
{
    EXPECT_EQ(resolve(QRectF(50, 10, 100, 20), std::nullopt, pair), first("focusedWindow"));
    const QList<ActiveDisplayCandidate> reversed = {pair[1], pair[0]};
    EXPECT_EQ(resolve(QRectF(50, 10, 100, 20), std::nullopt, reversed), second("focusedWindow"));
}

TEST(ActiveDisplayResolver, windowMostlyOnTheSecond_isOnTheSecond)
{
    EXPECT_EQ(resolve(QRectF(51, 10, 100, 20), QPointF(1, 1), pair), second("focusedWindow"));
}

TEST(ActiveDisplayResolver, windowOutsideEveryDisplay_fallsThroughToTheMouse)
{
    EXPECT_EQ(resolve(QRectF(-500, 0, 100, 20), QPointF(150, 10), pair), second("mouse"));
    // An edge that touches is no overlap.
    EXPECT_EQ(resolve(QRectF(200, 0, 10, 10), QPointF(1, 1), pair), first("mouse"));
}

TEST(ActiveDisplayResolver, emptyWindowFrame_isIgnored)
{
    for (const QRectF &frame :
         {QRectF(110, 10, 0, 20), QRectF(110, 10, 20, 0), QRectF(), QRectF(130, 10, -20, 20), QRectF(110, 30, 20, -20),
          QRectF(110, 10, std::numeric_limits<double>::quiet_NaN(), 20)}) {
        EXPECT_EQ(resolve(frame, QPointF(1, 1), pair), first("mouse"));
        EXPECT_EQ(resolve(frame, std::nullopt, pair), std::nullopt);
    }
}

TEST(ActiveDisplayResolver, mouseOnRightOrBottomEdge_isOutside)
{
    const QList<ActiveDisplayCandidate> one = {pair[0]};
    EXPECT_EQ(resolve(std::nullopt, QPointF(100, 40), one), std::nullopt);
    EXPECT_EQ(resolve(std::nullopt, QPointF(50, 80), one), std::nullopt);
    EXPECT_EQ(resolve(std::nullopt, QPointF(99.999, 79.999), one), first("mouse"));
}

TEST(ActiveDisplayResolver, mouseOnLeftOrTopEdge_isInside)
{
    EXPECT_EQ(resolve(std::nullopt, QPointF(0, 0), pair), first("mouse"));
    EXPECT_EQ(resolve(std::nullopt, QPointF(-0.001, 0), pair), std::nullopt);
}

TEST(ActiveDisplayResolver, mouseOnSharedEdge_isOnTheRightHandDisplay)
{
    EXPECT_EQ(resolve(std::nullopt, QPointF(100, 0), pair), second("mouse"));
}

TEST(ActiveDisplayResolver, mouseOnMirroredDisplays_isOnTheEarlier)
{
    const QList<ActiveDisplayCandidate> mirrored = {pair[0], candidate("33", "Display 2", pair[0].bounds)};
    EXPECT_EQ(resolve(std::nullopt, QPointF(5, 5), mirrored), first("mouse"));
}

TEST(ActiveDisplayResolver, neitherWindowNorMouse_isNone)
{
    EXPECT_EQ(resolve(std::nullopt, std::nullopt, pair), std::nullopt);
}

TEST(ActiveDisplayResolver, noDisplays_isNone)
{
    EXPECT_EQ(resolve(QRectF(0, 0, 10, 10), QPointF(1, 1), {}), std::nullopt);
}

TEST(ActiveDisplayResolver, mouseOutsideEveryDisplay_isNone)
{
    EXPECT_EQ(resolve(std::nullopt, QPointF(500, 500), pair), std::nullopt);
    EXPECT_EQ(resolve(QRectF(500, 500, 10, 10), QPointF(-1, -1), pair), std::nullopt);
}

TEST(ActiveDisplayResolver, displayOfUnknownPosition_isNeverChosen)
{
    const QList<ActiveDisplayCandidate> unknown = {candidate("33", "Display 1", {}), pair[1]};
    EXPECT_EQ(resolve(QRectF(-10, -10, 300, 300), QPointF(0, 0), unknown), second("focusedWindow"));
    EXPECT_EQ(resolve(std::nullopt, QPointF(0, 0), unknown), std::nullopt);
}

TEST(ActiveDisplayResolver, displayGivenBackwards_isTheSameDisplay)
{
    const QList<ActiveDisplayCandidate> backwards = {candidate("11", "Display 1 (main)", {100, 80, -100, -80})};
    EXPECT_EQ(resolve(QRectF(10, 10, 10, 10), std::nullopt, backwards), first("focusedWindow"));
    EXPECT_EQ(resolve(std::nullopt, QPointF(0, 0), backwards), first("mouse"));
}

} // namespace
} // namespace ostrel
