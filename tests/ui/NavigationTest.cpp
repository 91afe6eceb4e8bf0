#include "PopoverFixture.h"

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

/// The numbers of the screens.
enum Screen { Home, Journal, Settings };

class Navigation : public PopoverFixture
{
protected:
    int current() const { return m_view->rootObject()->property("screen").toInt(); }
    bool forward() const { return m_view->rootObject()->property("navigatingForward").toBool(); }
    double wantedHeight() const { return m_view->rootObject()->property("wantedHeight").toDouble(); }
    void allowArchiveStatus()
    {
        m_observer.always(QStringLiteral("GET /api/archive/status"),
                          FakeHttpTransport::answer(ArchiveStatus().toJson()));
    }
};

TEST_F(Navigation, journalAndBack_goForwardAndBackward)
{
    open();
    EXPECT_EQ(current(), Home);
    press("Journal");
    EXPECT_EQ(current(), Journal);
    EXPECT_TRUE(forward());
    press("Back");
    EXPECT_EQ(current(), Home);
    EXPECT_FALSE(forward());
    EXPECT_EQ(screen().focused(), QStringLiteral("Start recording"));
}

TEST_F(Navigation, tab_visitsEveryControlInTheOrderOfReading)
{
    open();
    QStringList visited;
    for (int i = 0; i < 4; ++i) {
        key(Qt::Key_Tab);
        visited.append(screen().focused());
    }
    EXPECT_EQ(visited, (QStringList{QStringLiteral("Journal"), QStringLiteral("Settings"),
                                    QStringLiteral("Quit Tamsk Ostrel"), QStringLiteral("Start recording")}));
}

TEST_F(Navigation, tabInTheSettings_leavesTheInstructionsAndReachesTheEnd)
{
    allowArchiveStatus();
    open();
    press("Settings");
    m_popover->settings()->setInstructions(QStringLiteral("Short"));
    settle();
    QStringList visited;
    for (int i = 0; i < 12 && !visited.contains(QStringLiteral("Save")); ++i) {
        key(Qt::Key_Tab);
        visited.append(screen().focused());
    }
    EXPECT_EQ(visited,
              (QStringList{QStringLiteral("Back"), QStringLiteral("Output directory"), QStringLiteral("Choose…"),
                           QStringLiteral("Restore default"), QStringLiteral("Custom instructions"),
                           QStringLiteral("Enable"), QStringLiteral("Use key"), QStringLiteral("Add key"),
                           QStringLiteral("Open Tamsk Ostrel when you log in"), QStringLiteral("Save")}));
    key(Qt::Key_Backtab);
    EXPECT_EQ(screen().focused(), QStringLiteral("Open Tamsk Ostrel when you log in"));
}

TEST_F(Navigation, theHeight_isThatOfTheScreenShown)
{
    allowArchiveStatus();
    m_accessibilityGranted = false;
    open();
    const double permissions = wantedHeight();
    EXPECT_GE(permissions, 400);
    EXPECT_LT(permissions, 560);
    press("Continue");
    EXPECT_EQ(wantedHeight(), 560);
    press("Journal");
    EXPECT_EQ(wantedHeight(), 560);
}

TEST_F(Navigation, largeText_fitsThePanel)
{
    allowArchiveStatus();
    open();
    m_popover->appearance()->setTextScale(DesktopAppearance::largestTextScale);
    settle();
    EXPECT_TRUE(showsButton("Start recording"));
    press("Settings");
    EXPECT_EQ(wantedHeight(), 560);
    for (const char *name : {"Choose…", "Save", "Back"}) {
        const QQuickItem *button = screen().button(QString::fromUtf8(name));
        const QRectF area = button->mapRectToScene(button->boundingRect());
        EXPECT_TRUE(QRectF(0, 0, 320, 560).contains(area)) << name;
    }
}

TEST_F(Navigation, rightToLeft_mirrorsTheHeader)
{
    QGuiApplication::setLayoutDirection(Qt::RightToLeft);
    open();
    const qreal quit = screen().button(QStringLiteral("Quit Tamsk Ostrel"))->mapToScene({}).x();
    const qreal journal = screen().button(QStringLiteral("Journal"))->mapToScene({}).x();
    press("Journal");
    const qreal back = screen().button(QStringLiteral("Back"))->mapToScene({}).x();
    QGuiApplication::setLayoutDirection(Qt::LeftToRight);
    EXPECT_LT(quit, journal);
    EXPECT_LT(journal, 160);
    EXPECT_GT(back, 160);
}

TEST_F(Navigation, withMotion_screensSlideAndTheNewOneStays)
{
    open();
    m_popover->appearance()->setReducedMotion(false);
    press("Journal");
    EXPECT_EQ(current(), Journal);
    QTRY_VERIFY_WITH_TIMEOUT(!showsButton("Start recording"), 5000);
    EXPECT_EQ(screen().item(QStringLiteral("Journal"), QAccessible::Heading)->mapToScene({}).y() > 0, true);
}

} // namespace
