#include "platform/x11/capture/X11DisplaySource.h"

#include "X11CaptureFixture.h"
#include "base/Fault.h"
#include "capture/CaptureError.h"
#include "platform/x11/capture/X11ScreenCaptureAccess.h"

#include <gtest/gtest.h>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

TEST_F(X11Capture, twoMonitors_areTwoDisplaysInTheMainOnesCoordinates)
{
    m_desktop.setMonitors(twoMonitors);
    const auto content = m_source.shareableContent();
    ASSERT_TRUE(content);
    ASSERT_EQ(content->displays.size(), 2);
    EXPECT_EQ(content->mainDisplayId, idOf(monitorB));
    for (const CapturableDisplay &display : content->displays) {
        const bool isMain = display.displayId == content->mainDisplayId;
        EXPECT_EQ(display.bounds, isMain ? QRectF(0, 0, 240, 200) : QRectF(-400, -100, 400, 300));
        EXPECT_EQ(display.width, isMain ? 240 : 400);
        EXPECT_EQ(display.height, isMain ? 200 : 300);
    }
}

TEST_F(X11Capture, announcedWindows_giveTheirProcessesOnce)
{
    m_painter.announceWindows({4321, 0, 1234, 4321});
    const auto content = m_source.shareableContent();
    ASSERT_TRUE(content);
    EXPECT_EQ(content->applications,
              (QList<ScreenCaptureApplicationIdentity>{{.processID = 4321, .bundleIdentifier = {}},
                                                       {.processID = 1234, .bundleIdentifier = {}}}));
}

TEST_F(X11Capture, noWindowManager_namesNoApplications)
{
    EXPECT_TRUE(m_source.shareableContent()->applications.isEmpty());
}

TEST_F(X11Capture, eachMonitor_showsItsOwnPartPixelByPixel)
{
    m_desktop.setMonitors(twoMonitors);
    const Picture onLeft = m_painter.paintNoise(left, 1);
    const Picture onRight = m_painter.paintNoise(right, 2);
    EXPECT_TRUE(pictureOf(*opened(monitorA)) == onLeft);
    EXPECT_TRUE(pictureOf(*opened(monitorB)) == onRight);
}

TEST_F(X11Capture, changedScreen_isSeenByTheNextPicture)
{
    m_desktop.setMonitors(twoMonitors);
    const auto screenshotter = opened(monitorB);
    const Picture before = m_painter.paintNoise(right, 1);
    EXPECT_TRUE(pictureOf(*screenshotter) == before);
    const Picture after = m_painter.paintNoise(right, 2);
    EXPECT_TRUE(pictureOf(*screenshotter) == after);
}

TEST_F(X11Capture, unknownDisplay_isGone)
{
    const auto screenshotter = open(12'345);
    ASSERT_FALSE(screenshotter);
    EXPECT_TRUE(isFault(screenshotter.error(), Fault::DisplayGone));
}

TEST_F(X11Capture, monitorThatMoves_isFollowed)
{
    m_desktop.setMonitors(twoMonitors);
    const auto screenshotter = opened(monitorB);
    pictureOf(*screenshotter);
    const QRect moved = right.translated(-100, 50);
    auto monitors = twoMonitors;
    monitors[1].pixels = moved;
    m_desktop.setMonitors(monitors);
    const Picture there = m_painter.paintNoise(moved, 3);
    EXPECT_TRUE(pictureOf(*screenshotter) == there);
}

TEST_F(X11Capture, monitorThatVanishes_isAnErrorThatNamesIt)
{
    m_desktop.setMonitors(twoMonitors);
    const auto screenshotter = opened(monitorA);
    pictureOf(*screenshotter);
    m_desktop.setMonitors({twoMonitors[1]});
    for (int attempt = 0; attempt < 2; ++attempt) {
        const auto taken = screenshotter->capture();
        ASSERT_FALSE(taken);
        EXPECT_TRUE(isFault(taken.error(), Fault::DisplayGone));
        EXPECT_EQ(taken.error().localizedDescription, QStringLiteral("The display \"A\" is not connected any more."));
    }
}

TEST_F(X11Capture, monitorThatChangesItsSize_isAnErrorUntilItIsOpenedAgain)
{
    m_desktop.setMonitors(twoMonitors);
    const auto screenshotter = opened(monitorA);
    pictureOf(*screenshotter);
    auto monitors = twoMonitors;
    monitors[0].pixels = QRect(0, 0, 200, 300);
    m_desktop.setMonitors(monitors);
    for (int attempt = 0; attempt < 2; ++attempt) {
        const auto taken = screenshotter->capture();
        ASSERT_FALSE(taken);
        EXPECT_TRUE(isFault(taken.error(), Fault::DisplayResized));
    }
    const Picture now = m_painter.paintNoise(monitors[0].pixels, 4);
    EXPECT_TRUE(pictureOf(*opened(monitorA)) == now);
}

TEST_F(X11Capture, monitorBeyondTheScreen_isRefusedAndNoGarbage)
{
    m_desktop.setMonitors({{.name = monitorA, .pixels = QRect(300, 200, 640, 400), .primary = true}});
    const auto screenshotter = opened(monitorA);
    const auto taken = screenshotter->capture();
    ASSERT_FALSE(taken);
    EXPECT_TRUE(isFault(taken.error(), Fault::PictureRefused));
}

TEST_F(X11Capture, serverThatDies_isAnErrorAndANewOneIsConnectedTo)
{
    m_desktop.setMonitors(twoMonitors);
    const auto screenshotter = opened(monitorB, true);
    pictureOf(*screenshotter);
    m_desktop.restartServer();
    for (int attempt = 0; attempt < 2; ++attempt) {
        const auto taken = screenshotter->capture();
        ASSERT_FALSE(taken);
        EXPECT_TRUE(isFault(taken.error(), Fault::NoXDisplay));
    }
    const auto content = m_source.shareableContent();
    ASSERT_TRUE(content);
    ASSERT_EQ(content->displays.size(), 1);
    EXPECT_TRUE((*open(content->displays[0].displayId))->capture());
}

class ImpatientX11Capture : public X11Capture
{
protected:
    ImpatientX11Capture()
        : X11Capture({.size = {640, 400}, .sessionBus = false}, {.patience = 100ms, .pointerRest = neverAtRest})
    {}
};

TEST_F(ImpatientX11Capture, serverThatFreezes_isATimeOutAndAnsweringAgainItIsConnectedToAnew)
{
    m_desktop.setMonitors(twoMonitors);
    const auto screenshotter = opened(monitorA, true);
    pictureOf(*screenshotter);
    m_desktop.server().freeze();
    for (int attempt = 0; attempt < 3; ++attempt) {
        const auto taken = screenshotter->capture();
        ASSERT_FALSE(taken);
        EXPECT_TRUE(isFault(taken.error(), Fault::TimedOut)) << taken.error().localizedDescription.toStdString();
    }
    EXPECT_TRUE(isFault(m_source.shareableContent().error(), Fault::TimedOut)) << "nor is there a new connection";

    m_desktop.server().thaw();
    EXPECT_TRUE(isFault(screenshotter->capture().error(), Fault::TimedOut)) << "late answers find nobody";
    const Picture now = m_painter.paintNoise(left, 5);
    EXPECT_EQ(m_source.shareableContent()->displays.size(), 2);
    EXPECT_TRUE(pictureOf(*opened(monitorA)) == now);
}

TEST_F(ImpatientX11Capture, serverFrozenFromTheStart_isATimeOut)
{
    m_desktop.server().freeze();
    EXPECT_TRUE(isFault(m_source.shareableContent().error(), Fault::TimedOut));
    m_desktop.server().thaw();
    EXPECT_TRUE(m_source.shareableContent());
}

TEST_F(X11Capture, pointer_isInThePictureWhereItIs)
{
    constexpr std::uint16_t crosshair = 34;
    m_desktop.setMonitors(twoMonitors);
    m_painter.fill(QRect(0, 0, 640, 400), 0x204060);
    m_painter.setCursor(crosshair, 0xff0000);
    m_painter.movePointer({450, 180});
    const auto with = opened(monitorB, true);
    const auto without = opened(monitorB, false);
    EXPECT_EQ(rgbAt(pictureOf(*with), right, {450, 180}), 0xff0000u);
    EXPECT_EQ(rgbAt(pictureOf(*without), right, {450, 180}), 0x204060u);

    m_painter.movePointer({500, 220});
    const Picture moved = pictureOf(*with);
    EXPECT_EQ(rgbAt(moved, right, {450, 180}), 0x204060u) << "nothing is left where it was";
    EXPECT_EQ(rgbAt(moved, right, {500, 220}), 0xff0000u);
}

TEST_F(X11Capture, pointerThatChangesItsShape_isSeen)
{
    constexpr std::uint16_t crosshair = 34;
    constexpr std::uint16_t dot = 38;
    m_desktop.setMonitors(twoMonitors);
    m_painter.fill(right, 0xffffff);
    m_painter.movePointer({450, 180});
    m_painter.setCursor(crosshair, 0xff0000);
    const auto screenshotter = opened(monitorB, true);
    const Picture before = pictureOf(*screenshotter);
    m_painter.setCursor(dot, 0x0000ff);
    const Picture after = pictureOf(*screenshotter);
    EXPECT_EQ(rgbAt(before, right, {450, 180}), 0xff0000u);
    EXPECT_EQ(rgbAt(after, right, {450, 180}), 0x0000ffu);
}

TEST_F(X11Capture, pointerAtTheEdge_isCutOffAndOnTheOtherMonitorAbsent)
{
    constexpr std::uint16_t crosshair = 34;
    m_desktop.setMonitors(twoMonitors);
    m_painter.fill(QRect(0, 0, 640, 400), 0);
    m_painter.setCursor(crosshair, 0x00ff00);
    m_painter.movePointer({639, 299}); // the last pixel of B
    EXPECT_EQ(rgbAt(pictureOf(*opened(monitorB, true)), right, {639, 299}), 0x00ff00u);
    EXPECT_EQ(pictureOf(*opened(monitorA, true)), Picture(std::size_t(400) * 300 * 4, 0));
}

TEST_F(X11Capture, streams_areNotOffered)
{
    EXPECT_EQ(m_source.captureMode(), CaptureMode::Screenshots);
    const auto stream = m_source.makeStream({}, {}, {}, {});
    ASSERT_FALSE(stream);
    EXPECT_EQ(stream.error(), captureError(CaptureErrorCode::NoStream));
}

TEST_F(X11Capture, access_isWhetherTheDisplayCanBeReached)
{
    X11ScreenCaptureAccess here(m_desktop.display());
    EXPECT_TRUE(here.preflight());
    EXPECT_TRUE(here.request());
    X11ScreenCaptureAccess nowhere(QByteArrayLiteral(":64123"));
    EXPECT_FALSE(nowhere.preflight());
    EXPECT_FALSE(nowhere.request());
}

TEST_F(X11Capture, access_goesAndComesWithTheServer)
{
    X11ScreenCaptureAccess access(m_desktop.display());
    EXPECT_TRUE(access.preflight());
    m_desktop.server().kill();
    EXPECT_FALSE(access.preflight());
    EXPECT_FALSE(access.preflight());
    m_desktop.restartServer();
    EXPECT_TRUE(access.preflight());
}

TEST(X11DisplaySource, noServer_isNoXDisplay)
{
    X11DisplaySource source(QByteArrayLiteral(":64123"));
    const auto content = source.shareableContent();
    ASSERT_FALSE(content);
    EXPECT_TRUE(isFault(content.error(), Fault::NoXDisplay));
}

class X11CaptureAtDepth16 : public X11Capture
{
protected:
    X11CaptureAtDepth16() : X11Capture({.size = {640, 480}, .depth = 16, .sessionBus = false}) {}
};

TEST_F(X11CaptureAtDepth16, screenshotter_saysWhatIsWrongAndWhatToDo)
{
    const auto screenshotter = open(m_source.shareableContent()->mainDisplayId);
    ASSERT_FALSE(screenshotter);
    EXPECT_TRUE(isFault(screenshotter.error(), Fault::ScreenFormatUnsupported));
    EXPECT_EQ(screenshotter.error().localizedDescription,
              QStringLiteral("The screen's colours come in a form that cannot be recorded (a colour depth of 16). Set "
                             "the screen to a colour depth of 24."));
}

} // namespace
