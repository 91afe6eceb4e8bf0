#include "X11PrivateWindowsFixture.h"

#include <gtest/gtest.h>

using namespace ostrel;

namespace {

/// A window that belongs to another one, as its dialogs do.
class X11PrivateDialogs : public X11PrivateWindowsTest
{
protected:
    xcb_window_t openDialog(const QRect &place, xcb_window_t owner)
    {
        const xcb_window_t dialog = m_painter.openWindow(place, secretColor);
        m_painter.hideWindow(dialog);
        m_painter.setOwner(dialog, owner);
        m_painter.showWindow(dialog);
        return dialog;
    }
};

TEST_F(X11PrivateDialogs, dialogOfAPrivateWindow_isLeftOutToo)
{
    drawScene();
    const auto recorder = openRecorder(wholeScreen);
    const Picture scene = recorded(*recorder);
    const xcb_window_t secret = openSecret({100, 80, 300, 200});
    const xcb_window_t dialog = openDialog({420, 20, 100, 60}, secret);
    EXPECT_TRUE(recorded(*recorder) == scene);
    openDialog({500, 300, 50, 50}, dialog); // and the dialog's own
    EXPECT_TRUE(recorded(*recorder) == scene);
}

TEST_F(X11PrivateDialogs, dialogOfAWindowThatBecomesPrivate_isLeftOutFromThenOn)
{
    drawScene();
    const auto recorder = openRecorder(wholeScreen);
    const Picture scene = recorded(*recorder);
    const xcb_window_t browser = m_painter.openWindow({200, 50, 200, 300}, secretColor);
    m_painter.setTitle(browser, "News");
    openDialog({450, 200, 100, 100}, browser);
    EXPECT_TRUE(shows(recorded(*recorder), secretColor));
    m_painter.setTitle(browser, "Private news");
    EXPECT_TRUE(recorded(*recorder) == scene);
    m_painter.setTitle(browser, "News");
    EXPECT_TRUE(shows(recorded(*recorder), secretColor));
}

TEST_F(X11PrivateDialogs, dialogOfAnotherWindow_isSeen)
{
    drawScene();
    const auto recorder = openRecorder(wholeScreen);
    openSecret({0, 0, 50, 50});
    openDialog({450, 200, 100, 100}, m_above);
    recorded(*recorder); // a new window is shown when it has had the time to be drawn
    EXPECT_EQ(rgbAt(recorded(*recorder), screen, {460, 210}), secretColor);
}

TEST_F(X11PrivateDialogs, dialogsThatBelongToEachOther_endTheSearch)
{
    drawScene();
    const auto recorder = openRecorder(wholeScreen);
    const xcb_window_t one = openDialog({450, 200, 100, 100}, m_above);
    m_painter.setOwner(m_above, one);
    EXPECT_EQ(rgbAt(recorded(*recorder), screen, {460, 210}), secretColor);
}

TEST_F(X11PrivateWindowsTest, modernTitleThatBecomesPrivate_countsThoughTheOldOneStays)
{
    drawScene();
    const auto recorder = openRecorder(wholeScreen);
    const Picture scene = recorded(*recorder);
    const xcb_window_t browser = m_painter.openWindow({200, 50, 200, 300}, secretColor);
    m_painter.setTitle(browser, "News");
    m_painter.setModernTitle(browser, "News");
    EXPECT_TRUE(shows(recorded(*recorder), secretColor));
    m_painter.setModernTitle(browser, "Private news");
    EXPECT_TRUE(recorded(*recorder) == scene);
    m_painter.setModernTitle(browser, "News");
    EXPECT_TRUE(shows(recorded(*recorder), secretColor));
}

TEST_F(X11WithWindowManager, privateWindowThatIsMinimised_uncoversAndComesBackHidden)
{
    m_painter.setWallpaper(4);
    const Picture scene = seen(wholeScreen);
    const auto recorder = openRecorder(wholeScreen);
    const auto terminal = m_desktop.startTerminal(QStringLiteral("Private terminal"));
    const QString id = QString::number(terminal);
    EXPECT_TRUE(recorded(*recorder) == scene);
    m_desktop.run(QStringLiteral("xdotool"), {QStringLiteral("windowminimize"), QStringLiteral("--sync"), id});
    EXPECT_TRUE(recorded(*recorder) == scene);
    EXPECT_TRUE(seen(wholeScreen) == scene);
    m_desktop.activate(terminal);
    waitUntil(QStringLiteral("the terminal to be back"), std::chrono::seconds(10),
              [&] { return seen(wholeScreen) != scene; });
    EXPECT_TRUE(recorded(*recorder) == scene);
}

} // namespace
