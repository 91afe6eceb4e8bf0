#include "WaylandCaptureFixture.h"

#include <gtest/gtest.h>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

/// A small window that can be moved about.
class WlrChanges : public WaylandCapture
{
protected:
    /// @param place logical, on the output
    void showWindow(qsizetype output, QPoint place)
    {
        m_desktop.command(QStringLiteral("focus output %1").arg(WaylandDesktop::nameOf(output)));
        m_desktop.startTerminal(QStringLiteral("mover"), QStringLiteral("mover"), "00ff00");
        m_desktop.command(QStringLiteral("[app_id=mover] floating enable, resize set 40 px 30 px"));
        moveTo(place);
    }

    void moveTo(QPoint place)
    {
        m_desktop.command(QStringLiteral("[app_id=mover] move position %1 px %2 px").arg(place.x()).arg(place.y()));
    }

    /// What the output shows, by somebody who sees it for the first time.
    WaylandPicture freshPicture(qsizetype output) { return WaylandPicture::of(viewOf(*opened(output))); }
};

TEST_F(WlrChanges, stillScreen_isUnchangedAndTheViewStays)
{
    const auto screenshotter = opened(0);
    waitForRest(*screenshotter);
    for (int i = 0; i < 3; ++i) {
        const FrameView view = viewOf(*screenshotter);
        ASSERT_TRUE(view.changedRows);
        EXPECT_TRUE(view.changedRows->empty());
        EXPECT_TRUE(WaylandPicture::of(view) == WaylandPicture::plain(firstSize, 0x336699));
    }
}

TEST_F(WlrChanges, windowThatMoves_tellsItsRows)
{
    showWindow(0, {20, 50});
    const auto screenshotter = opened(0);
    waitForRest(*screenshotter);
    moveTo({200, 60});
    const FrameView view = viewOf(*screenshotter);
    ASSERT_TRUE(view.changedRows);
    ASSERT_EQ(view.changedRows->size(), 1u);
    const RowRange rows = view.changedRows->front();
    EXPECT_LE(rows.begin, 50);
    EXPECT_GE(rows.end, 80);
    EXPECT_LT(rows.end - rows.begin, firstSize.height()) << "not the whole screen";
}

TEST_F(WlrChanges, rowsThatAreNotTold_areAsTheyWere)
{
    for (const qsizetype output : {0, 1}) {
        SCOPED_TRACE(output);
        const auto screenshotter = opened(output);
        if (output == 0)
            showWindow(output, {10, 10});
        else
            m_desktop.command(QStringLiteral("[app_id=mover] move to output HEADLESS-2"));
        waitForRest(*screenshotter);
        WaylandPicture known = WaylandPicture::of(viewOf(*screenshotter));
        for (const QPoint place : {QPoint(5, 40), QPoint(15, 20), QPoint(0, 60), QPoint(10, 5)}) {
            moveTo(place);
            waitUntil(QStringLiteral("the told rows to make up the picture"), 10s, [&] {
                const FrameView view = viewOf(*screenshotter);
                if (!view.changedRows)
                    failTest(QStringLiteral("nobody knew what had changed"));
                for (const RowRange &rows : *view.changedRows)
                    known.copyRows(view, rows);
                return known == freshPicture(output);
            });
        }
    }
}

TEST_F(WlrChanges, twoScreenshottersOfOneOutput_areBothToldOfAChange)
{
    showWindow(0, {20, 50});
    const auto one = opened(0);
    const auto other = opened(0);
    waitForRest(*one);
    waitForRest(*other);
    moveTo({200, 60});
    for (DisplayScreenshotter *screenshotter : {one.get(), other.get()}) {
        const auto rows = viewOf(*screenshotter).changedRows;
        ASSERT_TRUE(rows);
        EXPECT_FALSE(rows->empty());
    }
}

TEST_F(WlrChanges, halfAMinute_endsInAWholePictureWhateverWasTold)
{
    std::chrono::milliseconds now{0};
    WlrDisplaySource source({}, {.monotonicTime = [&now] { return now; }});
    const auto screenshotter = open(source, idOf(0)).value();
    waitForRest(*screenshotter);
    now = 29'999ms;
    EXPECT_TRUE(viewOf(*screenshotter).changedRows.has_value());
    now = 30'000ms;
    EXPECT_FALSE(viewOf(*screenshotter).changedRows.has_value());
    EXPECT_TRUE(viewOf(*screenshotter).changedRows.has_value());
}

TEST_F(WlrChanges, outputTurnedUpsideDown_isSeenUprightByTheNextPicture)
{
    const auto screenshotter = opened(0);
    const auto picture = WaylandPicture::noise(firstSize, 7);
    const QString file = m_desktop.path(QStringLiteral("noise.ppm"));
    picture.save(file);
    m_desktop.showPicture(0, file);
    waitForPicture(*screenshotter, picture);
    m_desktop.command(QStringLiteral("output HEADLESS-1 transform 180"));
    waitForPicture(*screenshotter, picture);
}

} // namespace
