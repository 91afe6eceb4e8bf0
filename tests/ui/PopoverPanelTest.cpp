#include "app/tray/PopoverPanel.h"

#include "PopoverFixture.h"
#include "app/popover/DialogSheet.h"
#include "app/popover/ShadowProvider.h"
#include "support/FakePanelDesktop.h"

#include <QCursor>
#include <QScreen>

using namespace ostrel;

namespace {

/// The window itself, on a window system that the test plays.
class Panel : public PopoverFixture
{
protected:
    ~Panel() override
    {
        if (!m_panel)
            return;
        // As in the fixture: pictures go with the next one that is drawn.
        static_cast<QQuickView &>(m_panel->window()).setSource({});
        m_panel->window().setVisible(true);
        m_panel->window().grabWindow();
        m_panel.reset();
        settle();
    }

    void openPanel()
    {
        launch();
        m_popover = std::make_unique<PopoverModel>(PopoverModel::Dependencies{.model = *m_model,
                                                                              .defaults = m_defaults,
                                                                              .autostart = m_autostart,
                                                                              .clock = m_clock,
                                                                              .appVersion = m_version,
                                                                              .checkForUpdates = {}});
        m_popover->appearance()->setReducedMotion(true);
        m_panel = std::make_unique<PopoverPanel>(*m_popover, m_sheet, m_desktop, [this] { return m_isDialogUp; });
        QObject::connect(m_panel.get(), &PopoverWindow::leftByUser, m_panel.get(), [this] { ++m_left; });
        QObject::connect(m_panel.get(), &PopoverWindow::escapePressed, m_panel.get(), [this] { ++m_escaped; });
        QObject::connect(m_panel.get(), &PopoverWindow::quitPressed, m_panel.get(), [this] { ++m_quit; });
        showPanel();
    }
    void showPanel()
    {
        m_panel->showAt(m_icon);
        settle();
    }
    void pressMouseAt(QPoint position)
    {
        QCursor::setPos(position);
        m_desktop.pressed();
        settle();
    }

    const QRect m_icon{300, 2, 22, 22};
    FakePanelDesktop m_desktop;
    DialogSheet m_sheet;
    bool m_isDialogUp = false;
    int m_left = 0;
    int m_escaped = 0;
    int m_quit = 0;
    std::unique_ptr<PopoverPanel> m_panel;
};

TEST_F(Panel, withoutCompositor_isCutOutAndHasNoShadow)
{
    openPanel();
    const QWindow &window = m_panel->window();
    EXPECT_EQ(m_desktop.shadow, 0);
    EXPECT_EQ(window.size(), QSize(320, 560));
    EXPECT_EQ(m_panel->paper(), window.geometry());
    EXPECT_FALSE(window.mask().contains(QPoint(1, 1))) << "the corners are round";
    EXPECT_FALSE(window.mask().contains(QPoint(318, 558)));
    EXPECT_TRUE(window.mask().contains(QPoint(160, 1)));
    EXPECT_TRUE(window.mask().contains(QPoint(1, 280)));
}

TEST_F(Panel, withCompositor_isWholeAndThrowsAShadowAroundTheSamePlace)
{
    openPanel();
    const QRect paper = m_panel->paper();
    m_desktop.setComposited(true);
    EXPECT_EQ(m_desktop.shadow, 24);
    EXPECT_TRUE(m_panel->window().mask().isEmpty());
    EXPECT_EQ(m_panel->paper(), paper) << "margins count from the paper";
    EXPECT_EQ(m_panel->window().geometry(), paper.marginsAdded({24, 24, 24, 24}));

    m_desktop.setComposited(false);
    EXPECT_EQ(m_panel->window().size(), QSize(320, 560));
    EXPECT_FALSE(m_panel->window().mask().isEmpty());
}

TEST(ShadowProvider, shadow_isDarkestBelowTheSheetAndGoneAtTheEdges)
{
    ShadowProvider provider;
    QSize size;
    const QImage image = provider.requestImage(QStringLiteral("24/14"), &size, {});
    ASSERT_EQ(size, QSize(77, 77));
    const auto alphaAt = [&image](int x, int y) { return qAlpha(image.pixel(x, y)); };
    EXPECT_EQ(alphaAt(0, 0), 0);
    EXPECT_EQ(alphaAt(76, 76), 0);
    EXPECT_EQ(alphaAt(38, 0), 0);
    EXPECT_GT(alphaAt(38, 76 - 20), alphaAt(38, 20)) << "the light comes from above";
    EXPECT_GT(alphaAt(38, 76 - 20), alphaAt(38, 76 - 10)) << "it fades";
    EXPECT_LT(alphaAt(38, 76 - 20), 128);
}

TEST(ShadowProvider, sizesThatAreNone_haveNoPicture)
{
    ShadowProvider provider;
    for (const char *id : {"", "0/14", "-3/14", "24/-1", "100000/14", "x/y"})
        EXPECT_TRUE(provider.requestImage(QString::fromLatin1(id), nullptr, {}).isNull()) << id;
}

TEST_F(Panel, monitorOfClicks_isThereOnlyWhileThePanelIsShown)
{
    openPanel();
    EXPECT_EQ(m_desktop.monitors, 1);
    m_panel->hide();
    EXPECT_EQ(m_desktop.monitors, 0);
    showPanel();
    EXPECT_EQ(m_desktop.monitors, 1);
    m_panel->window().close();
    EXPECT_EQ(m_desktop.monitors, 0) << "closed by the window manager";
}

TEST_F(Panel, everyTimeItIsShown_isKeptOutOfTheLists)
{
    openPanel();
    EXPECT_EQ(m_desktop.keptOut, 1);
    showPanel();
    EXPECT_EQ(m_desktop.keptOut, 1) << "it was there already";
    m_panel->hide();
    showPanel();
    EXPECT_EQ(m_desktop.keptOut, 2) << "window managers forget it meanwhile";
}

TEST_F(Panel, pressOnTheBareDesktop_isLeaving)
{
    openPanel();
    pressMouseAt(m_panel->paper().bottomRight() + QPoint(40, -20));
    EXPECT_EQ(m_left, 1);
}

TEST_F(Panel, pressInItself_isNotLeaving)
{
    openPanel();
    pressMouseAt(m_panel->paper().center());
    pressMouseAt(m_panel->paper().topLeft() + QPoint(5, 300));
    EXPECT_EQ(m_left, 0);
}

TEST_F(Panel, pressInItsShadow_isLeaving)
{
    m_desktop.composited = true;
    openPanel();
    pressMouseAt(m_panel->paper().bottomRight() + QPoint(5, -20));
    EXPECT_EQ(m_left, 1);
}

TEST_F(Panel, pressOnTheIcon_isNotLeavingForTheClickToggles)
{
    openPanel();
    pressMouseAt(m_icon.center());
    EXPECT_EQ(m_left, 0);
}

TEST_F(Panel, focusOnItsWayFromElsewhere_isNotLeavingButLosingItIs)
{
    openPanel();
    m_panel->hide();
    QWindow other;
    other.show();
    other.requestActivate();
    settle();
    ASSERT_EQ(QGuiApplication::focusWindow(), &other);
    m_panel->showAt(m_icon);
    Q_EMIT qGuiApp->focusWindowChanged(nullptr);
    EXPECT_EQ(m_left, 0) << "it has not had the focus yet";
    settle();
    ASSERT_EQ(QGuiApplication::focusWindow(), &m_panel->window());
    Q_EMIT qGuiApp->focusWindowChanged(nullptr);
    EXPECT_EQ(m_left, 1);
}

TEST_F(Panel, pressWhileADialogIsUp_isNotLeaving)
{
    openPanel();
    m_isDialogUp = true;
    pressMouseAt(m_panel->paper().bottomRight() + QPoint(40, -20));
    EXPECT_EQ(m_left, 0);
}

TEST_F(Panel, escape_isTold)
{
    openPanel();
    QTest::keyClick(&m_panel->window(), Qt::Key_Escape);
    EXPECT_EQ(m_escaped, 1);
}

TEST_F(Panel, controlQ_isToldAlsoFromWithinAField)
{
    openPanel();
    QTest::keyClick(&m_panel->window(), Qt::Key_Q, Qt::ControlModifier);
    EXPECT_EQ(m_quit, 1);
    m_observer.always(QStringLiteral("GET /api/archive/status"),
                      FakeHttpTransport::answer(
                          ArchiveStatus{.archiveEnabled = false, .archiveVaultId = {}, .recoveryKey = {}}.toJson()));
    AccessibleScreen screen(static_cast<QQuickView &>(m_panel->window()));
    m_panel->window().grabWindow();
    screen.press(QStringLiteral("Settings"));
    settle();
    m_panel->window().grabWindow();
    screen.item(QStringLiteral("Output directory"), QAccessible::EditableText)->forceActiveFocus();
    const QString before = m_popover->settings()->outputDirectory();
    QTest::keyClick(&m_panel->window(), Qt::Key_Q, Qt::ControlModifier);
    EXPECT_EQ(m_quit, 2);
    EXPECT_EQ(m_popover->settings()->outputDirectory(), before);
}

} // namespace
