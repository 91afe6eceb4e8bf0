#pragma once

#include "PopoverFixture.h"
#include "app/popover/DialogSheet.h"
#include "base/TaskSlot.h"

#include <optional>

namespace ostrel {

/// The screens with alerts that are drawn on them.
class SheetFixture : public PopoverFixture
{
protected:
    ~SheetFixture() override
    {
        m_asking.cancel();
        close();
    }

    /// Puts an alert on the screens, which have to be shown.
    void ask(const DialogAlert &alert)
    {
        m_view->rootObject()->setProperty("sheet", QVariant::fromValue(&m_sheet));
        m_asking.start([this, alert](std::stop_token stop) { return note(alert, std::move(stop)); });
        settle();
    }

    DialogSheet m_sheet;
    std::optional<DialogAlertAnswer> m_answer; ///< to the alert asked last

private:
    Task<> note(DialogAlert alert, std::stop_token stop)
    {
        m_answer.reset();
        auto answer = co_await m_sheet.show(std::move(alert), stop);
        if (!stop.stop_requested())
            m_answer = std::move(answer);
    }

    TaskSlot m_asking;
};

} // namespace ostrel
