#include "PopoverFixture.h"

#include "app/popover/SymbolProvider.h"

#include <QColor>
#include <QGuiApplication>
#include <QHash>
#include <QImage>
#include <QPalette>

#include <cmath>
#include <limits>

using namespace ostrel;

namespace {

constexpr double readable = 4.5;

/// The relative luminance of the accessibility guidelines.
double luminance(const QColor &color)
{
    const auto linear = [](double part) {
        return part <= 0.04045 ? part / 12.92 : std::pow((part + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * linear(color.redF()) + 0.7152 * linear(color.greenF()) + 0.0722 * linear(color.blueF());
}

double contrast(const QColor &one, const QColor &other)
{
    const auto [darker, lighter] = std::minmax({luminance(one), luminance(other)});
    return (lighter + 0.05) / (darker + 0.05);
}

/// What most of a part of a picture is.
QColor mostFrequent(const QImage &picture, const QRect &area)
{
    QHash<QRgb, int> counts;
    for (int y = area.top(); y <= area.bottom(); ++y) {
        for (int x = area.left(); x <= area.right(); ++x)
            ++counts[picture.pixel(x, y)];
    }
    const auto most = std::max_element(counts.cbegin(), counts.cend());
    return QColor(most.key());
}

class Look : public PopoverFixture, public testing::WithParamInterface<bool>
{
protected:
    void openIn(bool dark)
    {
        m_observer.always(QStringLiteral("GET /api/archive/status"),
                          FakeHttpTransport::answer(
                              ArchiveStatus{.archiveVaultId = QStringLiteral("v"), .recoveryKey = {}}.toJson()));
        m_settings.inferenceProvider = QStringLiteral("google_vertex_ai");
        m_settings.archiveVaultId = QStringLiteral("v");
        open();
        m_popover->appearance()->setDark(dark);
        settle();
    }

    /// Every text that can be seen and operated, on the colour that it really stands on.
    /// @return how many there are
    int expectReadableTexts()
    {
        const QImage picture = m_view->grabWindow();
        int texts = 0;
        for (const QQuickItem *item : partsOf(*m_view->rootObject())) {
            const bool isText = item->inherits("QQuickText") || item->inherits("QQuickTextEdit");
            const QRect area = visibleArea(*item) & picture.rect();
            if (!isText || !item->isVisible() || !item->isEnabled() || area.isEmpty() || isEmpty(*item))
                continue;
            ++texts;
            const QColor ground = mostFrequent(picture, area);
            EXPECT_GE(contrast(item->property("color").value<QColor>(), ground), readable)
                << item->property("text").toString().toStdString() << " on " << ground.name().toStdString();
        }
        return texts;
    }
    /// Where it can be seen in the window: what is scrolled away, can't.
    static QRect visibleArea(const QQuickItem &item)
    {
        QRectF area = item.mapRectToScene(item.boundingRect());
        for (const QQuickItem *around = item.parentItem(); around != nullptr; around = around->parentItem()) {
            if (around->clip())
                area &= around->mapRectToScene(around->boundingRect());
        }
        return area.toAlignedRect();
    }
    static bool isEmpty(const QQuickItem &item) { return item.property("text").toString().isEmpty(); }
};

TEST_P(Look, everyTextOfEveryScreen_canBeRead)
{
    writeDay(QStringLiteral("2023-11-14"), entries(3));
    openIn(GetParam());
    EXPECT_GE(expectReadableTexts(), 4);
    press("Journal");
    EXPECT_GE(expectReadableTexts(), 10);
    press("Back");
    press("Settings");
    EXPECT_GE(expectReadableTexts(), 12);
}

TEST_P(Look, errorsAndNotices_canBeRead)
{
    m_screenGranted = false;
    openIn(GetParam());
    EXPECT_GE(expectReadableTexts(), 8);
    m_screenGranted = true;
    ObserverStatus status;
    status.lastError = QStringLiteral("The disk is full.");
    m_observer.always(getStatus, FakeHttpTransport::answer(status.toJson()));
    advance(std::chrono::seconds(2));
    EXPECT_TRUE(shows("The disk is full."));
    EXPECT_GE(expectReadableTexts(), 4);
}

TEST_P(Look, buttonsInEveryState_canBeRead)
{
    openIn(GetParam());
    press("Settings");
    m_popover->settings()->setInstructions(QStringLiteral("Short"));
    settle();
    for (const char *name : {"Save", "Add key", "Restore default"}) {
        QQuickItem *button = screen().button(QString::fromUtf8(name));
        const QPoint middle = button->mapToScene({button->width() / 2, button->height() / 2}).toPoint();
        QTest::mouseMove(m_view.get(), middle);
        settle();
        EXPECT_TRUE(button->property("hovered").toBool());
        expectReadableTexts();
        QTest::mousePress(m_view.get(), Qt::LeftButton, {}, middle);
        settle();
        expectReadableTexts();
        QTest::mouseMove(m_view.get(), {2, 2});
        QTest::mouseRelease(m_view.get(), Qt::LeftButton, {}, {2, 2});
    }
}

INSTANTIATE_TEST_SUITE_P(Schemes, Look, testing::Bool(),
                         [](const auto &info) { return info.param ? std::string("dark") : std::string("light"); });

TEST_F(PopoverFixture, aDarkPalette_turnsTheScreensDarkAtOnce)
{
    const QPalette light = QGuiApplication::palette();
    open();
    EXPECT_FALSE(m_popover->appearance()->isDark());
    QGuiApplication::setPalette(QPalette(QColor(QStringLiteral("#202020"))));
    settle();
    EXPECT_TRUE(m_popover->appearance()->isDark());
    EXPECT_EQ(mostFrequent(m_view->grabWindow(), {40, 60, 200, 40}), QColor(QStringLiteral("#1f1d1a")));
    QGuiApplication::setPalette(light);
    settle();
    EXPECT_FALSE(m_popover->appearance()->isDark());
}

TEST(Symbols, aDrawing_takesTheColourAndTheSizeAskedFor)
{
    SymbolProvider provider;
    QSize size;
    const QImage image = provider.requestImage(QStringLiteral("checkmark.circle.fill/#3e7d4e"), &size, {40, 40});
    EXPECT_EQ(size, QSize(40, 40));
    EXPECT_EQ(image.pixelColor(20, 6), QColor(QStringLiteral("#3e7d4e")));
    EXPECT_EQ(image.pixelColor(0, 0).alpha(), 0);
}

TEST(Symbols, whatIsNotDrawnOrNoColour_isNothing)
{
    SymbolProvider provider;
    EXPECT_TRUE(provider.requestImage(QStringLiteral("unicorn/#3e7d4e"), nullptr, {16, 16}).isNull());
    EXPECT_TRUE(provider.requestImage(QStringLiteral("folder/plaid"), nullptr, {16, 16}).isNull());
    EXPECT_TRUE(provider.requestImage(QStringLiteral("../folder/#000000"), nullptr, {16, 16}).isNull());
}

TEST(Appearance, textScale_staysWithinWhatCanBeShown)
{
    DesktopAppearance appearance;
    appearance.setTextScale(5);
    EXPECT_DOUBLE_EQ(appearance.textScale(), DesktopAppearance::largestTextScale);
    appearance.setTextScale(0);
    EXPECT_DOUBLE_EQ(appearance.textScale(), DesktopAppearance::smallestTextScale);
    appearance.setTextScale(std::numeric_limits<double>::quiet_NaN());
    EXPECT_DOUBLE_EQ(appearance.textScale(), DesktopAppearance::smallestTextScale);
}

} // namespace
