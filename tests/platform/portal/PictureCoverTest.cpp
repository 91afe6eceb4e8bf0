#include "platform/portal/PictureCover.h"

#include "support/Printers.h"

#include <gtest/gtest.h>

using namespace ostrel;

namespace {

const QRect left(0, 0, 64, 32);
const QRect right(64, 0, 64, 32);

/// What is black in a picture of the monitor whose corner was told, with a private window on either.
class CoverOfTheLeft : public testing::Test
{
protected:
    QList<QRect> black()
    {
        const auto places = m_cover.places({64, 32});
        return places ? places->black : QList<QRect>();
    }

    PrivatePlaces m_places{.monitors = {left, right}, .windows = {{1, 2, 3, 4}, {70, 10, 5, 5}}};
    PictureCover m_cover{[this](const QList<qint32> &) { return m_places; },
                         {},
                         StreamMonitorFacts{.corner = QPoint(0, 0), .logicalSize = left.size()},
                         {64, 32}};
};

TEST_F(CoverOfTheLeft, monitorsAsTheyWere_areToldApartByTheirPlaces)
{
    EXPECT_EQ(black(), (QList{QRect(1, 2, 3, 4)}));
    EXPECT_EQ(black(), (QList{QRect(1, 2, 3, 4)}));
}

TEST_F(CoverOfTheLeft, monitorsThatHaveChanged_areNotToldApartAnyMore)
{
    EXPECT_EQ(black(), (QList{QRect(1, 2, 3, 4)}));
    m_places.monitors = {right, left};
    EXPECT_EQ(black(), (QList{QRect(6, 10, 5, 5), QRect(1, 2, 3, 4)}));
    m_places.monitors = {left, right};
    EXPECT_EQ(black(), (QList{QRect(1, 2, 3, 4), QRect(6, 10, 5, 5)})) << "which is which is not known for that";
}

TEST_F(CoverOfTheLeft, monitorsThatHaveMoved_areFoundByTheirShape)
{
    EXPECT_FALSE(black().isEmpty());
    m_places.monitors = {left.translated(100, 0), QRect(0, 0, 50, 50)};
    m_places.windows = {{110, 3, 2, 2}};
    EXPECT_EQ(black(), (QList{QRect(10, 3, 2, 2)}));
}

} // namespace
