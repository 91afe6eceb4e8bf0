#pragma once

#include "base/Clock.h"

#include <QCoreApplication>
#include <QObject>

#include <memory>

namespace ostrel {

/// A clock on which short waits are over at once and long ones never end: for real connections, whose deadlines must
/// not pass while a slow machine is at work.
class PromptClock final : public Clock
{
public:
    qint64 nowMs() const override { return m_nowMs; }
    void setNowMs(qint64 nowMs) { m_nowMs = nowMs; }

    /// How many short waits there were.
    int pauses() const { return m_pauses; }

    std::function<void()> schedule(std::chrono::milliseconds delay, std::function<void()> callback) override
    {
        if (delay > std::chrono::seconds(5))
            return [] {};
        ++m_pauses;
        const auto alive = std::make_shared<bool>(true);
        QMetaObject::invokeMethod(
            &m_context,
            [alive, callback = std::move(callback)] {
                if (*alive)
                    callback();
            },
            Qt::QueuedConnection);
        return [alive] { *alive = false; };
    }

private:
    int m_pauses = 0;
    qint64 m_nowMs = 1'700'000'000'000;
    QObject m_context;
};

} // namespace ostrel
