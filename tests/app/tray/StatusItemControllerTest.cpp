#include "app/tray/StatusItemController.h"

#include "../../model/ModelFixture.h"

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

class FakeTrayItem final : public TrayItem
{
public:
    void show() override { isShown = true; }
    void setRecording(bool recording) override { dot.append(recording); }
    void setToolTip(const QString &text) override { toolTip = text; }
    QRect geometry() const override { return place; }
    void popUpMenu() override { ++menus; }

    bool isShown = false;
    QList<bool> dot;
    QString toolTip;
    QRect place{1000, 2, 22, 22};
    int menus = 0;
};

class FakePopoverWindow final : public PopoverWindow
{
public:
    bool isShown() const override { return shown; }
    void showAt(const QRect &icon) override
    {
        shown = true;
        icons.append(icon);
    }
    void hide() override
    {
        ASSERT_TRUE(shown);
        shown = false;
    }

    bool shown = false;
    QList<QRect> icons;
};

class StatusItem : public RunningRecording
{
protected:
    StatusItem()
    {
        auto item = std::make_unique<FakeTrayItem>();
        m_item = item.get();
        m_controller = std::make_unique<StatusItemController>(*m_model, m_clock, std::move(item), [this] {
            auto panel = std::make_unique<FakePopoverWindow>();
            m_panel = panel.get();
            ++m_panelsMade;
            return panel;
        });
        m_controller->setUp();
    }
    ~StatusItem() override { m_controller.reset(); }

    void click() { Q_EMIT m_item->clicked(false); }
    void clickWithControl() { Q_EMIT m_item->clicked(true); }

    FakeTrayItem *m_item = nullptr;
    FakePopoverWindow *m_panel = nullptr;
    int m_panelsMade = 0;
    std::unique_ptr<StatusItemController> m_controller;
};

TEST_F(StatusItem, setUp_itemIsShownWithToolTipAndDot)
{
    EXPECT_TRUE(m_item->isShown);
    EXPECT_EQ(m_item->toolTip, QStringLiteral("Tamsk Ostrel"));
    EXPECT_EQ(m_item->dot, QList<bool>{true});
    EXPECT_EQ(m_panelsMade, 0) << "the panel is made when it is shown first";
}

TEST_F(StatusItem, stopRequested_dotGoesAtOnceWhileTheObserverStillReportsRunning)
{
    m_observer.expect(postFrames, statusAnswer(true));
    expectStop();
    m_model->toggleRecording();
    EXPECT_TRUE(m_model->status()->running);
    EXPECT_EQ(m_item->dot, (QList{true, false}));
    settle();
    EXPECT_EQ(m_item->dot, (QList{true, false})) << "repeated values are dropped";
}

TEST_F(StatusItem, click_togglesTheOnePanel)
{
    click();
    ASSERT_TRUE(m_panel);
    EXPECT_TRUE(m_panel->shown);
    EXPECT_EQ(m_panel->icons, QList<QRect>{m_item->place});
    click();
    EXPECT_FALSE(m_panel->shown);
    click();
    EXPECT_TRUE(m_panel->shown);
    EXPECT_EQ(m_panelsMade, 1);
}

TEST_F(StatusItem, controlClick_opensTheContextMenuAndNotThePanel)
{
    clickWithControl();
    EXPECT_EQ(m_item->menus, 1);
    EXPECT_EQ(m_panelsMade, 0);
}

TEST_F(StatusItem, controlClickWhileThePanelIsOpen_closesItAndOpensTheMenu)
{
    click();
    clickWithControl();
    EXPECT_FALSE(m_panel->shown);
    EXPECT_EQ(m_item->menus, 1);
}

TEST_F(StatusItem, menuOpenedByTheTray_closesThePanel)
{
    Q_EMIT m_item->menuAboutToShow();
    click();
    Q_EMIT m_item->menuAboutToShow();
    EXPECT_FALSE(m_panel->shown);
}

TEST_F(StatusItem, escape_closesThePanel)
{
    click();
    Q_EMIT m_panel->escapePressed();
    EXPECT_FALSE(m_panel->shown);
    click();
    EXPECT_TRUE(m_panel->shown) << "Escape is no click on the icon";
}

TEST_F(StatusItem, clickIntoAnotherWindow_closesThePanelAndTheNextClickOnTheIconOpensIt)
{
    click();
    Q_EMIT m_panel->leftByUser();
    EXPECT_FALSE(m_panel->shown);
    advance(500ms);
    click();
    EXPECT_TRUE(m_panel->shown);
}

TEST_F(StatusItem, clickOnTheIconThatFirstTakesTheKeyboard_closesThePanelOnce)
{
    click();
    Q_EMIT m_panel->leftByUser();
    advance(499ms);
    click();
    EXPECT_FALSE(m_panel->shown) << "one click has closed it";
    click();
    EXPECT_TRUE(m_panel->shown);
}

TEST_F(StatusItem, leftTwice_isOneClosing)
{
    click();
    Q_EMIT m_panel->leftByUser();
    Q_EMIT m_panel->leftByUser();
    EXPECT_FALSE(m_panel->shown);
}

TEST_F(StatusItem, quitChosen_modelQuits)
{
    m_observer.expect(postFrames, statusAnswer(true));
    expectStop();
    Q_EMIT m_item->quitChosen();
    settle();
    EXPECT_EQ(commands(), QStringList({postFrames, postStop}));
    EXPECT_EQ(m_events, QStringList({endedByRequest, terminated}));
}

TEST_F(StatusItem, quitPressedInThePanel_modelQuits)
{
    click();
    m_observer.expect(postFrames, statusAnswer(true));
    expectStop();
    Q_EMIT m_panel->quitPressed();
    settle();
    EXPECT_EQ(commands(), QStringList({postFrames, postStop}));
    EXPECT_EQ(m_events, QStringList({endedByRequest, terminated}));
}

} // namespace
