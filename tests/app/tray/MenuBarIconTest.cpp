#include "app/tray/MenuBarIcon.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <optional>

namespace ostrel {
namespace {

const QColor label(0x20, 0x30, 0x40);
const TrayInk ink{.marks = label, .outline = {}};

/// The pixel at a point of the design grid of 64 by 64.
QColor at(const QImage &image, qreal x, qreal y)
{
    return image.pixelColor(int(x * image.width() / 64), int(y * image.height() / 64));
}

class MenuBarIconAtScale : public testing::TestWithParam<double>
{};

TEST_P(MenuBarIconAtScale, idle_circlesAndConnectorsAreInTheLabelColourAndNothingElse)
{
    const QImage image = MenuBarIcon::image(false, ink, GetParam() * 4);
    for (const QPointF center : {QPointF(22, 14), QPointF(42, 14), QPointF(22, 32), QPointF(42, 32), QPointF(22, 50)}) {
        EXPECT_EQ(at(image, center.x() + 8, center.y()), label);
        EXPECT_EQ(at(image, center.x(), center.y()).alpha(), 0) << "a ring, not a disc";
    }
    for (const QPointF middle : {QPointF(32, 14), QPointF(32, 32), QPointF(22, 23), QPointF(42, 23), QPointF(22, 41)})
        EXPECT_EQ(at(image, middle.x(), middle.y()), label);
    for (const QPointF empty : {QPointF(42, 50), QPointF(42, 48), QPointF(32, 23), QPointF(60, 4), QPointF(2, 62)})
        EXPECT_EQ(at(image, empty.x(), empty.y()).alpha(), 0);
}

TEST_P(MenuBarIconAtScale, recording_redDotStandsInTheTopRightCornerInAClearRing)
{
    const QImage image = MenuBarIcon::image(true, ink, GetParam() * 4);
    const qreal point = 64.0 / MenuBarIcon::size;
    const QColor dot = at(image, 64 - 3 * point, 3 * point);
    EXPECT_EQ(dot.alpha(), 255);
    EXPECT_GT(dot.red(), 2 * dot.green());
    EXPECT_GT(dot.red(), 2 * dot.blue());
    // The ring goes through the marks below it: the upper right circle begins where it ends.
    for (const QPointF inRing : {QPointF(64 - 3 * point, 6.75 * point), QPointF(64 - 6.75 * point, 3 * point)})
        EXPECT_EQ(at(image, inRing.x(), inRing.y()).alpha(), 0);
    EXPECT_EQ(at(image, 42, 40), label) << "the rest is drawn as ever";
}

/// At the sizes of a real tray a stroke is hardly wider than a pixel, so the nearest pixels are looked at.
TEST_P(MenuBarIconAtScale, drawnAtTraySize_everyMarkOfTheTablesIsSeen)
{
    const QImage image = MenuBarIcon::image(true, ink, GetParam());
    const auto mostOpaqueNear = [&image](QPointF point) {
        const QPointF pixel = point * image.width() / 64.0;
        int most = 0;
        for (const int dx : {-1, 0})
            for (const int dy : {-1, 0})
                most = std::max(most, image.pixelColor(qRound(pixel.x()) + dx, qRound(pixel.y()) + dy).alpha());
        return most;
    };
    for (const QPointF center : {QPointF(22, 14), QPointF(22, 32), QPointF(42, 32), QPointF(22, 50)}) {
        EXPECT_GT(mostOpaqueNear(center - QPointF(8, 0)), 100) << center.x() << ' ' << center.y();
        EXPECT_LT(image.pixelColor(int(center.x() * image.width() / 64), int(center.y() * image.width() / 64)).alpha(),
                  mostOpaqueNear(center - QPointF(8, 0)))
            << "a ring";
    }
    for (const QPointF middle : {QPointF(32, 32), QPointF(22, 23), QPointF(42, 23), QPointF(22, 41)})
        EXPECT_GT(mostOpaqueNear(middle), 60) << middle.x() << ' ' << middle.y();
    const QColor dot = image.pixelColor(image.width() - qRound(3 * GetParam()), qRound(3 * GetParam()) - 1);
    EXPECT_EQ(dot.alpha(), 255);
    EXPECT_GT(dot.red(), 2 * dot.green());
}

INSTANTIATE_TEST_SUITE_P(Scales, MenuBarIconAtScale, testing::Values(1.0, 1.5, 2.0));

/// How far the lightest or darkest pixel is from a panel of that grey.
int contrastOn(int grey, const QImage &image)
{
    int most = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const QColor pixel = image.pixelColor(x, y);
            const int seen = (qGray(pixel.rgb()) * pixel.alpha() + grey * (255 - pixel.alpha())) / 255;
            most = std::max(most, std::abs(seen - grey));
        }
    }
    return most;
}

TEST(MenuBarIcon, panelUnknown_marksAreSeenOnLightAndOnDark)
{
    constexpr int clearly = 110;
    for (const auto &wantsDark : {std::optional<bool>(), std::optional(true), std::optional(false)}) {
        const TrayInk guessed = trayInk({.foreground = {}, .background = {}, .wantsDark = wantsDark});
        const QImage image = MenuBarIcon::image(false, guessed, 1);
        for (const int grey : {0, 40, 128, 215, 255})
            EXPECT_GT(contrastOn(grey, image), grey == 128 ? clearly / 2 : clearly) << grey;
    }
}

TEST(MenuBarIcon, outline_goesAroundTheMarksAndLeavesThemAndTheRingAroundTheDotAsTheyAre)
{
    const TrayInk outlined{.marks = label, .outline = QColor(0xEF, 0xE9, 0xDD)};
    const QImage image = MenuBarIcon::image(true, outlined, 8);
    EXPECT_EQ(at(image, 30, 32), label);
    EXPECT_EQ(at(image, 32, 32), label);
    EXPECT_EQ(at(image, 22, 62), outlined.outline);
    EXPECT_EQ(at(image, 22, 32).alpha(), 0) << "a ring, not a disc";
    EXPECT_EQ(at(image, 42, 54).alpha(), 0);
    const qreal point = 64.0 / MenuBarIcon::size;
    EXPECT_EQ(at(image, 64 - 3 * point, 6.75 * point).alpha(), 0);
}

TEST(MenuBarIcon, image_isOfTheSizeOfItsScale)
{
    EXPECT_EQ(MenuBarIcon::image(false, ink, 1).size(), QSize(18, 18));
    EXPECT_EQ(MenuBarIcon::image(false, ink, 1.5).size(), QSize(27, 27));
    EXPECT_EQ(MenuBarIcon::image(true, ink, 2).size(), QSize(36, 36));
}

} // namespace
} // namespace ostrel
