#include "WaylandCaptureFixture.h"
#include "platform/sway/SwayPrivateWindows.h"

#include <QMap>
#include <QRect>

#include <algorithm>
#include <functional>
#include <gtest/gtest.h>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

constexpr quint32 background = 0x336699;
constexpr quint32 covered = 0;
constexpr quint32 secret = 0xff0000;
constexpr quint32 work = 0x00ff00;

WaylandPicture with(WaylandPicture picture, const QRect &area, quint32 colour)
{
    for (int y = area.top(); y <= area.bottom(); ++y) {
        for (int x = area.left(); x <= area.right(); ++x)
            picture.pixels[std::size_t(y * picture.size.width() + x)] = colour;
    }
    return picture;
}

/// Windows of the app id "vault" are private; what they show is red.
class WlrPrivateWindows : public WaylandCapture
{
protected:
    WlrPrivateWindows() : m_recorded({}, {}, areasOf({}))
    {
        m_desktop.command(QStringLiteral("floating_minimum_size 10 x 10"));
    }

    PrivateAreas areasOf(const QByteArray &socket)
    {
        auto windows = std::make_shared<SwayPrivateWindows>(
            socket, [this](const WindowIdentity &window) { return window.windowClass == m_excluded; },
            [](const QString &) { return std::nullopt; });
        return [windows](const QList<qint32> &processes) { return windows->places(processes); };
    }

    TestProcess &startVault()
    {
        return m_desktop.startTerminal(QStringLiteral("vault"), QStringLiteral("Passwords"), "ff0000");
    }

    void startWork() { m_desktop.startTerminal(QStringLiteral("work"), QStringLiteral("Work"), "00ff00"); }

    /// Floating; seen there by whoever waits for the picture.
    void place(const QString &appId, const QRect &logical)
    {
        m_places.insert(appId, logical);
        putIntoPlace(appId, logical);
    }

    void putIntoPlace(const QString &appId, const QRect &logical)
    {
        m_desktop.command(QStringLiteral("[app_id=%1] floating enable, resize set %2 px %3 px")
                              .arg(appId)
                              .arg(logical.width())
                              .arg(logical.height()));
        move(appId, logical.topLeft());
    }

    void move(const QString &appId, QPoint corner)
    {
        m_desktop.command(QStringLiteral("[app_id=%1] move absolute position %2 px %3 px")
                              .arg(appId)
                              .arg(corner.x())
                              .arg(corner.y()));
    }

    std::unique_ptr<DisplayScreenshotter> recorded(qsizetype output)
    {
        auto screenshotter = open(m_recorded, idOf(output));
        if (!screenshotter)
            failTest(screenshotter.error().localizedDescription);
        return std::move(*screenshotter);
    }

    /// Nothing that is private may be in any picture, the first ones included.
    static WaylandPicture pictureOf(DisplayScreenshotter &screenshotter)
    {
        WaylandPicture picture = WaylandPicture::of(viewOf(screenshotter));
        EXPECT_EQ(std::ranges::count(picture.pixels, secret), 0);
        return picture;
    }

    void waitForCovered(DisplayScreenshotter &screenshotter, const WaylandPicture &expected)
    {
        waitForPlaces(QStringLiteral("the covered picture"), [&] { return pictureOf(screenshotter) == expected; });
    }

    /// A terminal that is slow to start draws in its own size once more, and a floating window takes that on.
    void waitForPlaces(const QString &what, const std::function<bool()> &areSeen)
    {
        waitUntil(what, 20s, [&] {
            for (const auto &[appId, logical] : m_places.asKeyValueRange())
                putIntoPlace(appId, logical);
            return areSeen();
        });
    }

    const WaylandPicture m_empty = WaylandPicture::plain(firstSize, background);
    QString m_excluded = QStringLiteral("vault");
    WlrDisplaySource m_recorded;
    QMap<QString, QRect> m_places;
};

TEST_F(WlrPrivateWindows, tiledPrivateWindow_isBlackAndItsNeighbourIsNot)
{
    const auto screenshotter = recorded(0);
    m_desktop.command(QStringLiteral("focus output HEADLESS-1"));
    startVault();
    startWork();
    waitForCovered(*screenshotter, with(with(m_empty, {0, 0, 160, 240}, covered), {160, 0, 160, 240}, work));
}

TEST_F(WlrPrivateWindows, floatingWindowPartlyUnderAnother_isBlackAsAWhole)
{
    const auto screenshotter = recorded(0);
    startVault();
    place(QStringLiteral("vault"), {20, 20, 100, 80});
    startWork();
    place(QStringLiteral("work"), {60, 60, 120, 90});
    waitForCovered(*screenshotter, with(with(m_empty, {60, 60, 120, 90}, work), {20, 20, 100, 80}, covered));
}

TEST_F(WlrPrivateWindows, fullScreenPrivateWindow_blackensItsOutputAlone)
{
    m_desktop.command(QStringLiteral("focus output HEADLESS-1"));
    startVault();
    m_desktop.command(QStringLiteral("[app_id=vault] fullscreen enable"));
    waitForCovered(*recorded(0), WaylandPicture::plain(firstSize, covered));
    waitForCovered(*recorded(1), WaylandPicture::plain(secondSize, 0xff8001));
}

TEST_F(WlrPrivateWindows, windowOnTheScaledTurnedOutput_isBlackToThePixel)
{
    m_desktop.command(QStringLiteral("focus output HEADLESS-2"));
    startVault();
    place(QStringLiteral("vault"), {325, 11, 40, 30});
    waitForCovered(*recorded(1), with(WaylandPicture::plain(secondSize, 0xff8001), {10, 22, 80, 60}, covered));
}

TEST_F(WlrPrivateWindows, windowOnAFractionallyScaledOutput_showsNoPixelAtItsEdges)
{
    m_desktop.command(QStringLiteral("output HEADLESS-1 scale 1.25"));
    startVault();
    place(QStringLiteral("vault"), {33, 21, 101, 67});
    const auto screenshotter = recorded(0);
    for (const QPoint corner : {QPoint(33, 21), QPoint(34, 22), QPoint(35, 23), QPoint(36, 24)}) {
        move(QStringLiteral("vault"), corner);
        pictureOf(*screenshotter);
        waitForRest(*screenshotter);
        const WaylandPicture picture = pictureOf(*screenshotter);
        EXPECT_GT(std::ranges::count(picture.pixels, 0U), 0);
        EXPECT_GT(std::ranges::count(picture.pixels, background), 0);
    }
}

TEST_F(WlrPrivateWindows, windowAcrossTwoOutputs_isBlackOnBoth)
{
    startVault();
    place(QStringLiteral("vault"), {290, 10, 50, 40});
    waitForCovered(*recorded(0), with(m_empty, {290, 10, 30, 40}, covered));
    waitForCovered(*recorded(1), with(WaylandPicture::plain(secondSize, 0xff8001), {0, 20, 40, 80}, covered));
}

TEST_F(WlrPrivateWindows, windowThatMovesDuringTheRecording_isInNoPictureAndUntoldRowsStay)
{
    const auto screenshotter = recorded(0);
    startVault();
    place(QStringLiteral("vault"), {20, 20, 60, 50});
    WaylandPicture known = pictureOf(*screenshotter);
    for (const QPoint corner : {QPoint(200, 30), QPoint(210, 150), QPoint(5, 100)}) {
        place(QStringLiteral("vault"), {corner, QSize(60, 50)});
        waitForPlaces(QStringLiteral("the window at its new place"), [&] {
            const FrameView view = viewOf(*screenshotter);
            for (const RowRange &rows : view.changedRows.value_or(std::span<const RowRange>()))
                known.copyRows(view, rows);
            if (!view.changedRows)
                known = WaylandPicture::of(view);
            EXPECT_TRUE(known == WaylandPicture::of(view));
            EXPECT_EQ(std::ranges::count(known.pixels, secret), 0);
            return known == with(m_empty, QRect(corner, QSize(60, 50)), covered);
        });
    }
}

TEST_F(WlrPrivateWindows, privateWindowThatIsStill_leavesThePictureUnchanged)
{
    startVault();
    const auto screenshotter = recorded(0);
    waitForRest(*screenshotter);
    EXPECT_TRUE(viewOf(*screenshotter).changedRows->empty());
    pictureOf(*screenshotter);
}

TEST_F(WlrPrivateWindows, windowThatGoes_uncoversWhatLiesBehind)
{
    const auto screenshotter = recorded(0);
    TestProcess &vault = startVault();
    place(QStringLiteral("vault"), {20, 20, 100, 80});
    waitForCovered(*screenshotter, with(m_empty, {20, 20, 100, 80}, covered));
    vault.kill();
    m_places.clear();
    waitForCovered(*screenshotter, m_empty);
}

TEST_F(WlrPrivateWindows, rulesThatChange_holdFromTheNextPictureThoughNothingIsDrawn)
{
    m_excluded.clear();
    startVault();
    place(QStringLiteral("vault"), {20, 20, 100, 80});
    const auto screenshotter = recorded(0);
    waitForPlaces(QStringLiteral("the window"), [&] {
        return WaylandPicture::of(viewOf(*screenshotter)) == with(m_empty, {20, 20, 100, 80}, secret);
    });
    waitForRest(*screenshotter);
    m_excluded = QStringLiteral("vault");
    const FrameView hidden = viewOf(*screenshotter);
    EXPECT_FALSE(hidden.changedRows);
    EXPECT_TRUE(WaylandPicture::of(hidden) == with(m_empty, {20, 20, 100, 80}, covered));
    m_excluded.clear();
    const FrameView shown = viewOf(*screenshotter);
    EXPECT_FALSE(shown.changedRows);
    EXPECT_TRUE(WaylandPicture::of(shown) == with(m_empty, {20, 20, 100, 80}, secret));
}

TEST_F(WlrPrivateWindows, windowOfAFilteredProcess_isBlackWhateverTheRulesSay)
{
    m_excluded.clear();
    const TestProcess &vault = startVault();
    place(QStringLiteral("vault"), {20, 20, 100, 80});
    auto screenshotter =
        m_recorded.makeScreenshotter({.displayId = idOf(0), .mode = {.excludedProcessIDs = {qint32(vault.pid())}}}, {});
    ASSERT_TRUE(screenshotter);
    waitForCovered(**screenshotter, with(m_empty, {20, 20, 100, 80}, covered));
}

TEST_F(WlrPrivateWindows, windowInTheScratchpad_coversNothing)
{
    startVault();
    m_desktop.command(QStringLiteral("[app_id=vault] move scratchpad"));
    waitForCovered(*recorded(0), m_empty);
}

TEST_F(WlrPrivateWindows, swayThatCannotBeAsked_givesNoPicture)
{
    WlrDisplaySource source({}, {}, areasOf("/nonexistent/sock"));
    const auto taken = open(source, idOf(0)).value()->capture();
    ASSERT_FALSE(taken);
    EXPECT_TRUE(isFault(taken.error(), Fault::PictureRefused)) << qPrintable(taken.error().localizedDescription);
}

/// How private windows stand among others, in sway's words.
class WlrPrivateTitles : public WlrPrivateWindows, public testing::WithParamInterface<const char *>
{};

TEST_P(WlrPrivateTitles, titleOfAPrivateWindow_makesNoDifferenceToThePicture)
{
    m_desktop.command(QStringLiteral("default_border normal"));
    m_desktop.command(QStringLiteral("focus output HEADLESS-1"));
    startWork();
    startVault();
    for (const QString &command : QString::fromLatin1(GetParam()).split(u';'))
        m_desktop.command(command);
    const auto screenshotter = recorded(0);
    const auto plain = opened(0);
    const auto pictureUnder = [&](const char *title) {
        m_desktop.command(QStringLiteral("[app_id=vault] title_format \"%1\"").arg(QLatin1String(title)));
        waitForRest(*plain);
        return WaylandPicture::of(viewOf(*plain));
    };
    const auto before = pictureUnder("WWWWWWWW");
    waitForRest(*screenshotter);
    const auto coveredBefore = pictureOf(*screenshotter);
    ASSERT_FALSE(pictureUnder("iiii") == before) << "the title is on the screen";
    waitForRest(*screenshotter);
    EXPECT_TRUE(pictureOf(*screenshotter) == coveredBefore);
    EXPECT_GT(std::ranges::count_if(coveredBefore.pixels, [](quint32 pixel) { return pixel != covered; }), 0);
}

INSTANTIATE_TEST_SUITE_P(Layouts, WlrPrivateTitles,
                         testing::Values("layout splith", "layout tabbed", "layout tabbed;[app_id=work] focus",
                                         "layout stacking;[app_id=work] focus", "layout stacking;splitv;layout tabbed",
                                         "[app_id=work] focus;splitv;layout tabbed;[app_id=vault] focus;"
                                         "splith;layout stacking",
                                         "[app_id=vault] floating enable, border normal, resize set 250 px 80 px"));

} // namespace
