#pragma once

#include "context/BrowserScriptRunner.h"

#include <functional>
#include <gtest/gtest.h>

namespace ostrel {

/// A browser that answers as the test wants. A call that the test has no answer for fails it.
/// Set the answer before the calls begin; they come on the caller's thread.
class FakeBrowserScriptRunner final : public BrowserScriptRunner
{
public:
    std::function<std::optional<QString>(const Browser &browser, const QString &script, QDeadlineTimer deadline)> onRun;

    std::optional<QString> run(const Browser &browser, const QString &script, QDeadlineTimer deadline) override
    {
        if (onRun)
            return onRun(browser, script, deadline);
        ADD_FAILURE() << "unexpected call of BrowserScriptRunner::run";
        return std::nullopt;
    }
};

} // namespace ostrel
