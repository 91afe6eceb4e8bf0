#pragma once

#include "context/ForegroundSource.h"

#include <functional>
#include <gtest/gtest.h>

namespace ostrel {

/// A window system that says what the test wants. A call that the test has no answer for fails it.
/// Set the answers before the calls begin; they come on the caller's thread.
class FakeForegroundSource final : public ForegroundSource
{
public:
    std::function<std::optional<ForegroundApplication>()> onFrontmostApplication;
    std::function<std::optional<FocusedWindow>()> onFocusedWindow;
    std::function<std::optional<QPointF>()> onMouseLocation;
    std::function<QList<UnavailableFact>()> onUnavailableFacts;

    std::optional<ForegroundApplication> frontmostApplication() override
    {
        return answer(onFrontmostApplication, "frontmostApplication");
    }
    std::optional<FocusedWindow> focusedWindow() override { return answer(onFocusedWindow, "focusedWindow"); }
    std::optional<QPointF> mouseLocation() override { return answer(onMouseLocation, "mouseLocation"); }
    QList<UnavailableFact> unavailableFacts() override { return answer(onUnavailableFacts, "unavailableFacts"); }

private:
    template <class T>
    static T answer(const std::function<T()> &expected, const char *call)
    {
        if (expected)
            return expected();
        ADD_FAILURE() << "unexpected call of ForegroundSource::" << call;
        return {};
    }
};

} // namespace ostrel
