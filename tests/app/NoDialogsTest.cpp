#include "app/NoDialogs.h"

#include "base/TaskScope.h"
#include "model/NativeModals.h"
#include "support/ManualClock.h"
#include "support/Printers.h"

#include <gtest/gtest.h>

using namespace ostrel;

namespace {

/// A model's dialogs in a program that has no window. The answers come at once.
class WithoutDialogs : public testing::Test
{
protected:
    template <class T, class Ask>
    T ask(Ask ask)
    {
        std::optional<T> answer;
        // The scope keeps the closure. NOLINTNEXTLINE(cppcoreguidelines-avoid-capturing-lambda-coroutines)
        m_tasks.spawn([&answer, ask](std::stop_token stop) -> Task<> { answer = co_await ask(stop); });
        EXPECT_TRUE(answer.has_value());
        return answer.value_or(T());
    }

    ManualClock m_clock{[] { settleEvents(); }};
    NoDialogs m_dialogs;
    NativeModals m_modals{m_clock, m_dialogs};
    TaskScope m_tasks;
};

TEST_F(WithoutDialogs, alerts_answerTheirFallbackOrCancel)
{
    const DialogAlert alert{.message = QStringLiteral("Really?"),
                            .informativeText = {},
                            .buttons = {QStringLiteral("Yes"), QStringLiteral("No")},
                            .fields = {}};
    const auto presented = ask<DialogAlertAnswer>([this, alert](std::stop_token stop) {
        return m_modals.presentAlert(alert, DialogResponse::secondButton, std::move(stop));
    });
    EXPECT_EQ(presented.response, DialogResponse::secondButton);
    const auto run = ask<DialogAlertAnswer>(
        [this, alert](std::stop_token stop) { return m_modals.runNativeModal(alert, std::move(stop)); });
    EXPECT_EQ(run.response, DialogResponse::cancel);
}

TEST_F(WithoutDialogs, panels_areLeftWithoutAChoice)
{
    const auto opened = ask<PanelAnswer>(
        [this](std::stop_token stop) { return m_modals.presentOpenPanel(OpenPanel(), std::move(stop)); });
    EXPECT_EQ(opened.response, DialogResponse::cancel);
    const auto saved = ask<PanelAnswer>(
        [this](std::stop_token stop) { return m_modals.runNativeModal(SavePanel(), std::move(stop)); });
    EXPECT_EQ(saved.response, DialogResponse::cancel);
    EXPECT_EQ(saved.path, QString());
}

} // namespace
