#pragma once

#include "base/TaskSlot.h"

#include <QEventLoop>

namespace ostrel {

/// Runs one task to its end in an event loop of its own: for commands that are over when it is.
template <TaskMaker F>
void runToEnd(F make)
{
    QEventLoop loop;
    TaskSlot slot;
    // The slot keeps the closure. NOLINTNEXTLINE(cppcoreguidelines-avoid-capturing-lambda-coroutines)
    slot.start([&](std::stop_token stop) -> Task<> {
        co_await make(stop);
        loop.quit();
    });
    if (slot.isRunning())
        loop.exec();
}

} // namespace ostrel
