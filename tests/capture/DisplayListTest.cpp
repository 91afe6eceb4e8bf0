#include "capture/DisplayList.h"

#include "support/Printers.h"

#include <gtest/gtest.h>

using namespace ostrel;

namespace {

CapturableDisplay display(quint32 id, qint64 width = 100)
{
    return {.displayId = id, .width = width, .height = 50, .bounds = QRectF(double(id), 0, double(width), 50)};
}

QList<quint32> idsOf(const QList<CapturableDisplay> &displays)
{
    QList<quint32> ids;
    for (const auto &each : displays)
        ids.append(each.displayId);
    return ids;
}

TEST(DisplayList, displays7And3MainAnd5_areOrdered357AndLabelled)
{
    const auto ordered = orderedDisplays({display(7), display(3), display(5)}, 3);
    EXPECT_EQ(idsOf(ordered), (QList<quint32>{3, 5, 7}));
    EXPECT_EQ(displayLabel(ordered[0].displayId, 0, 3), QStringLiteral("Display 1 (main)"));
    EXPECT_EQ(displayLabel(ordered[1].displayId, 1, 3), QStringLiteral("Display 2"));
    EXPECT_EQ(displayLabel(ordered[2].displayId, 2, 3), QStringLiteral("Display 3"));
}

TEST(DisplayList, mainDisplayWithTheGreatestIdentifier_stillComesFirst)
{
    EXPECT_EQ(idsOf(orderedDisplays({display(2), display(4'000'000'000u), display(1)}, 4'000'000'000u)),
              (QList<quint32>{4'000'000'000u, 1, 2}));
}

TEST(DisplayList, mainDisplayUnknown_ordersByIdentifierAndNoneIsMain)
{
    const auto ordered = orderedDisplays({display(9), display(4)}, 77);
    EXPECT_EQ(idsOf(ordered), (QList<quint32>{4, 9}));
    EXPECT_EQ(displayLabel(4, 0, 77), QStringLiteral("Display 1"));
}

TEST(DisplayList, equalIdentifiers_keepTheirOrder)
{
    const auto ordered = orderedDisplays({display(4, 1), display(4, 2), display(4, 3)}, 0);
    EXPECT_EQ(ordered[0].width, 1);
    EXPECT_EQ(ordered[1].width, 2);
    EXPECT_EQ(ordered[2].width, 3);
}

TEST(DisplayList, candidates_haveTheLabelsAndBoundsOfTheOrderedDisplays)
{
    const auto candidates = activeDisplayCandidates({display(3), display(5)}, 3);
    ASSERT_EQ(candidates.size(), 2);
    EXPECT_EQ(candidates[0], (ActiveDisplayCandidate{.displayId = QStringLiteral("3"),
                                                     .displayLabel = QStringLiteral("Display 1 (main)"),
                                                     .bounds = QRectF(3, 0, 100, 50)}));
    EXPECT_EQ(candidates[1], (ActiveDisplayCandidate{.displayId = QStringLiteral("5"),
                                                     .displayLabel = QStringLiteral("Display 2"),
                                                     .bounds = QRectF(5, 0, 100, 50)}));
}

} // namespace
