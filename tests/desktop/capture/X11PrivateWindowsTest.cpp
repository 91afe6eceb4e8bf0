#include "X11PrivateWindowsFixture.h"

#include "support/LogRecorder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <thread>
#include <unistd.h>

using namespace ostrel;

namespace {

TEST_F(X11PrivateWindowsTest, windowOnTop_leavesThePictureOfTheSceneWithoutIt)
{
    drawScene();
    const auto recorder = openRecorder(wholeScreen);
    const Picture scene = seen(wholeScreen);
    EXPECT_EQ(recorded(*recorder), scene) << "nothing is private yet";
    const xcb_window_t secret = openSecret({100, 80, 300, 200});
    EXPECT_TRUE(shows(seen(wholeScreen), secretColor));
    EXPECT_TRUE(recorded(*recorder) == scene);
    m_painter.placeWindow(secret, {-50, 0, 1'000, 90});
    EXPECT_TRUE(recorded(*recorder) == scene);
    m_painter.closeWindow(secret);
    EXPECT_TRUE(recorded(*recorder) == scene);
}

TEST_F(X11PrivateWindowsTest, windowBetweenOrBelowOthers_leavesThePictureOfTheSceneWithoutIt)
{
    drawScene();
    const Picture scene = seen(wholeScreen);
    const xcb_window_t secret = openSecret({30, 30, 250, 180});
    m_painter.raiseWindow(m_above);
    const auto recorder = openRecorder(wholeScreen);
    EXPECT_TRUE(recorded(*recorder) == scene);
    m_painter.lowerWindow(secret);
    EXPECT_TRUE(recorded(*recorder) == scene);
}

TEST_F(X11PrivateWindowsTest, twoMonitors_areBothWithoutIt)
{
    m_desktop.setMonitors(twoMonitors);
    drawScene();
    const Picture sceneA = seen(monitorA);
    const Picture sceneB = seen(monitorB);
    const auto recorderA = openRecorder(monitorA);
    const auto recorderB = openRecorder(monitorB);
    openSecret({300, 50, 200, 200});
    EXPECT_TRUE(recorded(*recorderA) == sceneA);
    EXPECT_TRUE(recorded(*recorderB) == sceneB);
}

TEST_F(X11PrivateWindowsTest, shapedAndTranslucentWindows_lookAsOnAScreenWithoutACompositor)
{
    drawScene();
    m_painter.shapeWindow(m_above, {20, 30, 100, 60});
    m_painter.showWindow(m_painter.makeTranslucentWindow({60, 60, 100, 100}, 0x80400000));
    const Picture scene = seen(wholeScreen);
    const auto recorder = openRecorder(wholeScreen);
    openSecret({100, 80, 300, 200});
    EXPECT_TRUE(recorded(*recorder) == scene);
}

TEST_F(X11PrivateWindowsTest, drawingOnTheScreenItself_isSeenWhereNoWindowIs)
{
    drawScene();
    m_painter.fill({500, 300, 50, 50}, 0xff0000);
    const auto recorder = openRecorder(wholeScreen);
    openSecret({0, 0, 100, 100});
    EXPECT_EQ(rgbAt(recorded(*recorder), screen, {520, 320}), 0xff0000u);
}

TEST_F(X11PrivateWindowsTest, withoutAKnownWallpaper_theHiddenPartIsBlack)
{
    m_painter.fill(screen, 0x123456);
    const auto recorder = openRecorder(wholeScreen);
    openSecret({0, 0, 100, 100});
    const Picture picture = recorded(*recorder);
    EXPECT_EQ(rgbAt(picture, screen, {50, 50}), 0u);
    EXPECT_EQ(rgbAt(picture, screen, {300, 300}), 0x123456u);
}

TEST_F(X11PrivateWindowsTest, windowRetitled_isGoneAndComesBack)
{
    drawScene();
    const auto recorder = openRecorder(wholeScreen);
    const Picture scene = recorded(*recorder);
    const xcb_window_t browser = m_painter.openWindow({200, 50, 300, 300}, secretColor);
    m_painter.setTitle(browser, "News");
    EXPECT_TRUE(shows(recorded(*recorder), secretColor));
    m_painter.setTitle(browser, "Private news");
    EXPECT_TRUE(recorded(*recorder) == scene);
    m_painter.setTitle(browser, "News");
    EXPECT_TRUE(shows(recorded(*recorder), secretColor));
}

TEST_F(X11PrivateWindowsTest, rulesThatChange_holdFromTheNextPictureOn)
{
    drawScene();
    const auto recorder = openRecorder(wholeScreen);
    const Picture scene = recorded(*recorder);
    const xcb_window_t window = m_painter.openWindow({200, 50, 300, 300}, secretColor);
    m_painter.setClass(window, "Other");
    EXPECT_TRUE(shows(recorded(*recorder), secretColor));
    m_rules.windowClasses.append(QStringLiteral("other"));
    EXPECT_TRUE(recorded(*recorder) == scene);
    m_rules.windowClasses.clear();
    EXPECT_TRUE(shows(recorded(*recorder), secretColor));
}

TEST_F(X11PrivateWindowsTest, ownWindows_areLeftOutWhateverTheFilterSays)
{
    drawScene();
    const auto recorder = openRecorder(wholeScreen);
    const Picture scene = recorded(*recorder);
    const xcb_window_t panel = m_painter.openWindow({200, 50, 300, 300}, secretColor);
    m_painter.setProcess(panel, std::uint32_t(::getpid()));
    EXPECT_TRUE(recorded(*recorder) == scene);
}

TEST_F(X11PrivateWindowsTest, processesOfTheFilter_areLeftOut)
{
    drawScene();
    const Picture scene = seen(wholeScreen);
    const xcb_window_t window = m_painter.openWindow({200, 50, 300, 300}, secretColor);
    m_painter.setProcess(window, 1);
    const auto recorder = m_recorder.makeScreenshotter(
        {.displayId = idOf(wholeScreen), .mode = {.excludedProcessIDs = {1}}}, withoutCursor());
    EXPECT_TRUE(recorded(**recorder) == scene);
}

TEST_F(X11PrivateWindowsTest, redirection_isHeldBetweenPicturesAndOnlyWhileItIsNeeded)
{
    drawScene();
    const auto recorder = openRecorder(wholeScreen);
    recorded(*recorder);
    EXPECT_FALSE(m_painter.isRedirected(m_below));
    const xcb_window_t secret = openSecret({100, 80, 300, 200});
    for (int i = 0; i < 3; ++i) {
        recorded(*recorder);
        EXPECT_TRUE(m_painter.isRedirected(m_below)) << "nothing flickers from one picture to the next";
    }
    m_painter.hideWindow(secret);
    recorded(*recorder);
    EXPECT_FALSE(m_painter.isRedirected(m_below));
}

TEST_F(X11PrivateWindowsTest, hiddenPrivateWindow_leavesTheChangesTold)
{
    drawScene();
    const auto recorder = openRecorder(wholeScreen);
    makeSecret({100, 80, 300, 200});
    recorded(*recorder);
    const auto view = recorder->capture();
    ASSERT_TRUE(view.has_value());
    ASSERT_TRUE((*view)->changedRows.has_value());
    EXPECT_TRUE((*view)->changedRows->empty());
}

TEST_F(X11PrivateWindowsTest, whileAWindowIsLeftOut_nothingIsSaidOfChanges)
{
    drawScene();
    const auto recorder = openRecorder(wholeScreen);
    recorded(*recorder);
    const xcb_window_t secret = openSecret({100, 80, 300, 200});
    for (int i = 0; i < 2; ++i)
        EXPECT_FALSE((*recorder->capture())->changedRows);
    m_painter.closeWindow(secret);
    EXPECT_FALSE((*recorder->capture())->changedRows) << "the picture before was another one";
}

TEST_F(X11PrivateWindowsTest, programThatNeverDraws_doesNotShowWhatThePrivateWindowLeftInItsPicture)
{
    m_painter.setWallpaper(4);
    const xcb_window_t frozen = m_painter.makeUnpaintedWindow({100, 80, 300, 200});
    m_painter.showWindow(frozen);
    const auto recorder = openRecorder(wholeScreen);
    recorded(*recorder);
    openSecret({50, 50, 400, 300});
    EXPECT_FALSE(shows(recorded(*recorder), secretColor)) << "redirecting copies what the screen shows";
}

TEST_F(X11PrivateWindowsTest, windowThatComesOverAPrivateOne_waitsUntilItHasDrawn)
{
    m_painter.setWallpaper(4);
    const auto recorder = openRecorder(wholeScreen);
    openSecret({50, 50, 400, 300});
    recorded(*recorder);
    m_now += std::chrono::milliseconds(10);
    const xcb_window_t menu = m_painter.makeUnpaintedWindow({100, 80, 100, 100});
    m_painter.showWindow(menu);
    EXPECT_FALSE(shows(pictureOf(*recorder), secretColor)) << "it shows what was there before";
    const xcb_window_t other = m_painter.openWindow({300, 80, 50, 50}, 0x0000ff);
    EXPECT_FALSE(shows(pictureOf(*recorder), 0x0000ff));
    m_painter.closeWindow(menu);
    EXPECT_TRUE(shows(recorded(*recorder), 0x0000ff));
    m_painter.closeWindow(other);
}

TEST_F(X11PrivateWindowsTest, eachChangeOfTheirNumber_isLoggedOnce)
{
    const auto recorder = openRecorder(wholeScreen);
    LogRecorder log("com.tamsk.ostrel.ScreenCaptureRecorder");
    const xcb_window_t secret = openSecret({50, 50, 400, 300});
    recorded(*recorder);
    recorded(*recorder);
    EXPECT_EQ(log.take(QtInfoMsg),
              QStringList{QStringLiteral("private windows kept out of the pictures by compositing: 1")});
    m_painter.closeWindow(secret);
    recorded(*recorder);
    EXPECT_EQ(log.take(QtInfoMsg),
              QStringList{QStringLiteral("private windows kept out of the pictures by compositing: 0")});
}

/// Maps, names, unmaps and closes as fast as it can, until it is told to stop.
class Racer
{
public:
    explicit Racer(const QByteArray &display)
        : m_thread([this, display] {
              X11Painter painter(display);
              for (int round = 0; !m_isEnough; ++round)
                  run(painter, round);
          })
    {}
    ~Racer()
    {
        m_isEnough = true;
        m_thread.join();
    }

private:
    static void run(X11Painter &painter, int round)
    {
        const QRect place(20 * (round % 20), 10 * (round % 20), 200, 150);
        const xcb_window_t window = painter.makeUnpaintedWindow(place);
        if (round % 2 == 0)
            painter.setClass(window, secretClass);
        else
            painter.setTitle(window, "Private page");
        const std::uint32_t color = secretColor;
        xcb_change_window_attributes(painter.connection().get(), window, XCB_CW_BACK_PIXEL, &color);
        painter.showWindow(window);
        if (round % 3 == 0)
            painter.raiseWindow(window);
        if (round % 5 == 0)
            painter.hideWindow(window);
        if (round % 7 == 0) // long enough to be in somebody's picture
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        painter.closeWindow(window);
    }

    std::atomic<bool> m_isEnough = false;
    std::thread m_thread;
};

TEST_F(X11PrivateWindowsTest, windowsThatComeAndGoDuringTheGrab_areInNoPicture)
{
    drawScene();
    const auto recorder = openRecorder(wholeScreen);
    const Racer racer(m_desktop.display());
    int seenByOthers = 0;
    const auto others = opened(wholeScreen);
    for (int i = 0; (i < 60 || seenByOthers == 0) && i < 600 && !HasFailure(); ++i) {
        m_now += std::chrono::seconds(1);
        EXPECT_FALSE(shows(pictureOf(*recorder), secretColor)) << "picture " << i;
        seenByOthers += shows(pictureOf(*others), secretColor);
    }
    EXPECT_GT(seenByOthers, 0) << "or there was no race";
}

class X11WithoutComposite : public X11PrivateWindowsTest
{
protected:
    X11WithoutComposite()
        : X11PrivateWindowsTest({.size = screen.size(),
                                 .sessionBus = false,
                                 .serverArguments = {QStringLiteral("-extension"), QStringLiteral("Composite")}})
    {}
};

TEST_F(X11WithoutComposite, placeOfThePrivateWindow_isBlack)
{
    m_painter.fill(screen, 0x123456);
    const auto recorder = openRecorder(wholeScreen);
    const xcb_window_t secret = openSecret({100, 80, 300, 200});
    for (const QPoint corner : {QPoint(100, 80), QPoint(200, 10)}) {
        m_painter.placeWindow(secret, {corner, QSize(300, 200)});
        m_painter.fill(screen, 0x123456);
        const Picture picture = recorded(*recorder);
        EXPECT_FALSE(shows(picture, secretColor));
        EXPECT_EQ(rgbAt(picture, screen, corner + QPoint(10, 10)), 0u);
        EXPECT_EQ(rgbAt(picture, screen, {600, 390}), 0x123456u);
    }
}

TEST_F(X11WithWindowManager, framedWindow_isLeftOutWithItsFrame)
{
    m_painter.setWallpaper(4);
    const Picture scene = seen(wholeScreen);
    const auto recorder = openRecorder(wholeScreen);
    m_desktop.startTerminal(QStringLiteral("Private terminal"));
    EXPECT_FALSE(seen(wholeScreen) == scene);
    EXPECT_TRUE(recorded(*recorder) == scene);
}

TEST_F(X11WithWindowManager, besideACompositor_thePictureIsThatOfTheSceneWithoutIt)
{
    drawScene();
    m_painter.showWindow(m_painter.makeTranslucentWindow({60, 60, 100, 100}, 0x80400000));
    m_desktop.start(QStringLiteral("picom"), {QStringLiteral("--backend"), QStringLiteral("xrender"),
                                              QStringLiteral("--config"), QStringLiteral("/dev/null")});
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    const auto others = opened(wholeScreen);
    // The translucent window over the blue one: half of it shines through.
    while (rgbAt(pictureOf(*others), screen, {70, 70}) != 0x40007fu && std::chrono::steady_clock::now() < deadline)
        ::usleep(20'000);
    const Picture scene = pictureOf(*others);
    ASSERT_EQ(rgbAt(scene, screen, {70, 70}), 0x40007fu) << "the compositor has not come up";
    const auto recorder = openRecorder(wholeScreen);
    openSecret({100, 80, 300, 200});
    EXPECT_TRUE(recorded(*recorder) == scene);
}

} // namespace
