#include "model/NativeModals.h"

#include "base/TaskScope.h"
#include "support/FakeDialogHost.h"
#include "support/ManualClock.h"
#include "support/Printers.h"

#include <gmock/gmock.h>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

DialogAlert question()
{
    return {.message = QStringLiteral("Really?"),
            .informativeText = QStringLiteral("It can't be undone."),
            .buttons = {QStringLiteral("Yes"), QStringLiteral("No")},
            .fields = {{.label = QStringLiteral("Why"), .placeholder = {}, .text = {}}}};
}

/// The dialogs alone, on the manual clock.
class Modals : public testing::Test
{
protected:
    Modals()
    {
        QObject::connect(&m_modals, &NativeModals::nativeModalActiveChanged,
                         [this] { m_announced.append(m_modals.nativeModalActive()); });
    }

    void run(const DialogAlert &alert)
    {
        // The scope keeps the closure. NOLINTNEXTLINE(cppcoreguidelines-avoid-capturing-lambda-coroutines)
        m_tasks.spawn([this, alert](std::stop_token stop) -> Task<> {
            m_alertAnswer = co_await m_modals.runNativeModal(alert, stop);
        });
    }
    template <class Panel>
    void run(const Panel &panel)
    {
        // The scope keeps the closure. NOLINTNEXTLINE(cppcoreguidelines-avoid-capturing-lambda-coroutines)
        m_tasks.spawn([this, panel](std::stop_token stop) -> Task<> {
            m_panelAnswer = co_await m_modals.runNativeModal(panel, stop);
        });
    }
    void present(const DialogAlert &alert, int fallback)
    {
        // The scope keeps the closure. NOLINTNEXTLINE(cppcoreguidelines-avoid-capturing-lambda-coroutines)
        m_tasks.spawn([this, alert, fallback](std::stop_token stop) -> Task<> {
            m_alertAnswer = co_await m_modals.presentAlert(alert, fallback, stop);
        });
    }
    void present(const OpenPanel &panel)
    {
        // The scope keeps the closure. NOLINTNEXTLINE(cppcoreguidelines-avoid-capturing-lambda-coroutines)
        m_tasks.spawn([this, panel](std::stop_token stop) -> Task<> {
            m_panelAnswer = co_await m_modals.presentOpenPanel(panel, stop);
        });
    }

    ManualClock m_clock{[] { settleEvents(); }};
    FakeDialogHost m_dialogs;
    NativeModals m_modals{m_clock, m_dialogs};
    QList<bool> m_announced;
    std::optional<DialogAlertAnswer> m_alertAnswer;
    std::optional<PanelAnswer> m_panelAnswer;
    TaskScope m_tasks;
};

TEST_F(Modals, alertThatRunsOnItsOwn_isShownInFrontAndAnswersItsButtonAndFields)
{
    m_dialogs.expectDialog();
    run(question());
    EXPECT_EQ(m_dialogs.alert(), question());
    EXPECT_EQ(m_dialogs.placement(), DialogPlacement::ApplicationModal);
    EXPECT_EQ(m_dialogs.activations, 1);
    EXPECT_EQ(m_alertAnswer, std::nullopt) << "it is still up";
    m_dialogs.answer(DialogResponse::secondButton, {QStringLiteral("because")});
    ASSERT_TRUE(m_alertAnswer);
    EXPECT_EQ(m_alertAnswer->response, 1001);
    EXPECT_EQ(m_alertAnswer->fields, QStringList(QStringLiteral("because")));
}

TEST_F(Modals, alertThatRunsWithoutAWindow_isShownAllTheSame)
{
    m_dialogs.presentationWindow = false;
    m_dialogs.expectDialog();
    run(question());
    m_dialogs.answer(DialogResponse::firstButton);
    EXPECT_EQ(m_alertAnswer->response, 1000);
}

TEST_F(Modals, openPanelThatRuns_answersThePath)
{
    OpenPanel panel;
    panel.message = QStringLiteral("Where?");
    panel.canChooseDirectories = true;
    m_dialogs.expectDialog();
    run(panel);
    EXPECT_EQ(m_dialogs.openPanel(), panel);
    EXPECT_EQ(m_dialogs.placement(), DialogPlacement::ApplicationModal);
    EXPECT_EQ(m_dialogs.activations, 1);
    m_dialogs.choose(QStringLiteral("/there"));
    EXPECT_EQ(m_panelAnswer->response, 1);
    EXPECT_EQ(m_panelAnswer->path, QStringLiteral("/there"));
}

TEST_F(Modals, savePanelThatIsLeft_answersNothing)
{
    m_dialogs.expectDialog();
    run(SavePanel{.proposedFileName = QStringLiteral("key.txt")});
    EXPECT_EQ(m_dialogs.savePanel().proposedFileName, QStringLiteral("key.txt"));
    m_dialogs.leave();
    EXPECT_EQ(m_panelAnswer->response, DialogResponse::cancel);
    EXPECT_EQ(m_panelAnswer->path, QString());
}

TEST_F(Modals, alertWithAWindow_isASheetOnIt)
{
    m_dialogs.expectDialog();
    present(question(), DialogResponse::secondButton);
    EXPECT_EQ(m_dialogs.placement(), DialogPlacement::Sheet);
    EXPECT_EQ(m_dialogs.activations, 0) << "its window is in front already";
    m_dialogs.answer(DialogResponse::firstButton);
    EXPECT_EQ(m_alertAnswer->response, 1000);
}

TEST_F(Modals, alertWithoutAnyWindow_answersItsFallbackWithoutAppearing)
{
    m_dialogs.presentationWindow = false;
    present(question(), DialogResponse::secondButton);
    ASSERT_TRUE(m_alertAnswer);
    EXPECT_EQ(m_alertAnswer->response, 1001);
    EXPECT_EQ(m_alertAnswer->fields, QStringList());
    EXPECT_EQ(m_modals.nativeModalDepth(), 0);
    EXPECT_TRUE(m_modals.nativeModalActive()) << "the grace passes as after any other";
    m_clock.advance(1s);
    EXPECT_FALSE(m_modals.nativeModalActive());
}

TEST_F(Modals, openPanelWithAWindow_isASheetAndWithoutOneStandsOnItsOwn)
{
    m_dialogs.expectDialog();
    present(OpenPanel());
    EXPECT_EQ(m_dialogs.placement(), DialogPlacement::Sheet);
    m_dialogs.leave();
    m_dialogs.presentationWindow = false;
    m_dialogs.expectDialog();
    present(OpenPanel());
    EXPECT_EQ(m_dialogs.placement(), DialogPlacement::ApplicationModal);
    m_dialogs.choose(QStringLiteral("/file"));
    EXPECT_EQ(m_panelAnswer->path, QStringLiteral("/file"));
}

TEST_F(Modals, dialog_isActiveFromItsOpeningUntilASecondAfterItHasClosed)
{
    EXPECT_FALSE(m_modals.nativeModalActive());
    m_dialogs.expectDialog();
    run(question());
    EXPECT_EQ(m_modals.nativeModalDepth(), 1);
    m_clock.advance(1min);
    EXPECT_TRUE(m_modals.nativeModalActive());
    m_dialogs.answer(DialogResponse::firstButton);
    EXPECT_EQ(m_modals.nativeModalDepth(), 0);
    m_clock.advance(999ms);
    EXPECT_TRUE(m_modals.nativeModalActive());
    m_clock.advance(1ms);
    EXPECT_FALSE(m_modals.nativeModalActive());
    EXPECT_EQ(m_announced, QList<bool>({true, false}));
}

TEST_F(Modals, popover_getsTheKeyboardAtTheEndOfADialogAndOfItsGrace)
{
    m_dialogs.expectDialog();
    run(question());
    EXPECT_EQ(m_dialogs.refocusings, 0);
    m_dialogs.answer(DialogResponse::firstButton);
    EXPECT_EQ(m_dialogs.refocusings, 1);
    m_clock.advance(1s);
    EXPECT_EQ(m_dialogs.refocusings, 2);
}

TEST_F(Modals, dialogOpenedInTheGraceOfAnother_staysActiveUntilItsOwnIsOver)
{
    m_dialogs.expectDialogs(2);
    run(question());
    m_dialogs.answer(DialogResponse::firstButton);
    m_clock.advance(500ms);
    run(question());
    m_clock.advance(1s);
    EXPECT_TRUE(m_modals.nativeModalActive()) << "the first one's grace is no longer the last";
    m_dialogs.answer(DialogResponse::firstButton);
    m_clock.advance(999ms);
    EXPECT_TRUE(m_modals.nativeModalActive());
    m_clock.advance(1ms);
    EXPECT_FALSE(m_modals.nativeModalActive());
    EXPECT_EQ(m_announced, QList<bool>({true, false}));
}

TEST_F(Modals, dialogOpenedAndClosedInTheGraceOfAnother_isNotEndedByTheFirstOnesGrace)
{
    m_dialogs.expectDialogs(2);
    run(question());
    m_dialogs.answer(DialogResponse::firstButton);
    m_clock.advance(500ms);
    run(question());
    m_dialogs.answer(DialogResponse::firstButton);
    m_clock.advance(500ms);
    EXPECT_EQ(m_modals.nativeModalDepth(), 0);
    EXPECT_TRUE(m_modals.nativeModalActive());
    m_clock.advance(500ms);
    EXPECT_FALSE(m_modals.nativeModalActive());
}

TEST_F(Modals, nestedDialogs_areActiveUntilASecondAfterTheLastOne)
{
    m_dialogs.expectDialogs(2);
    run(question());
    present(OpenPanel());
    EXPECT_EQ(m_modals.nativeModalDepth(), 2);
    m_dialogs.leave();
    EXPECT_EQ(m_modals.nativeModalDepth(), 1);
    m_clock.advance(2s);
    EXPECT_TRUE(m_modals.nativeModalActive()) << "one is still up";
    m_dialogs.answer(DialogResponse::firstButton);
    EXPECT_EQ(m_modals.nativeModalDepth(), 0);
    m_clock.advance(1s);
    EXPECT_FALSE(m_modals.nativeModalActive());
}

TEST_F(Modals, dismissalReportedTwice_depthStaysAtZero)
{
    m_dialogs.expectDialogs(2);
    run(question());
    m_dialogs.answer(DialogResponse::firstButton);
    m_modals.endNativeModalAfterDismissal();
    m_modals.endNativeModalAfterDismissal();
    EXPECT_EQ(m_modals.nativeModalDepth(), 0);
    run(question());
    EXPECT_EQ(m_modals.nativeModalDepth(), 1) << "the next one counts as one";
    m_clock.advance(2s);
    EXPECT_TRUE(m_modals.nativeModalActive());
    m_dialogs.answer(DialogResponse::firstButton);
    m_clock.advance(1s);
    EXPECT_EQ(m_announced, QList<bool>({true, false})) << "each change is announced once";
}

TEST_F(Modals, callerThatIsStopped_takesItsDialogAway)
{
    m_dialogs.expectDialogs(2);
    run(question());
    m_tasks.cancelAll();
    EXPECT_EQ(m_dialogs.openDialogs(), 0);
    EXPECT_EQ(m_alertAnswer->response, DialogResponse::cancel);
    EXPECT_EQ(m_modals.nativeModalDepth(), 0);
    run(SavePanel());
    m_tasks.cancelAll();
    EXPECT_EQ(m_panelAnswer->response, DialogResponse::cancel);
    m_clock.advance(1s);
    EXPECT_FALSE(m_modals.nativeModalActive());
}

TEST_F(Modals, openDialog_eventsAreHandledMeanwhile)
{
    m_dialogs.expectDialog();
    run(question());
    bool handled = false;
    QMetaObject::invokeMethod(&m_modals, [&handled] { handled = true; }, Qt::QueuedConnection);
    settleEvents();
    EXPECT_TRUE(handled);
    EXPECT_EQ(m_alertAnswer, std::nullopt);
    m_dialogs.answer(DialogResponse::firstButton);
}

TEST(ModalsThatGo, duringTheGrace_nothingIsLeftOfIt)
{
    ManualClock clock([] { settleEvents(); });
    FakeDialogHost dialogs;
    auto modals = std::make_unique<NativeModals>(clock, dialogs);
    modals->endNativeModalAfterDismissal();
    modals.reset();
    EXPECT_EQ(clock.pendingTimerCount(), 0);
    clock.advance(1s);
    EXPECT_EQ(dialogs.refocusings, 1);
}

} // namespace
