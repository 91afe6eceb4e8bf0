#include "base/Clock.h"

#include "base/Op.h"

#include <QPointer>
#include <QTimer>

#include <algorithm>
#include <limits>
#include <memory>
#include <variant>

namespace ostrel {

using std::chrono::milliseconds;

Task<bool> Clock::sleepFor(milliseconds duration, std::stop_token stop)
{
    const auto elapsed = co_await Op<std::monostate>(
        std::move(stop), [this, duration](auto resolve) { return schedule(duration, [resolve] { resolve({}); }); });
    co_return elapsed.has_value();
}

qint64 SystemClock::nowMs() const
{
    const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<milliseconds>(sinceEpoch).count();
}

std::function<void()> SystemClock::schedule(milliseconds delay, std::function<void()> callback)
{
    auto *timer = new QTimer;
    timer->setSingleShot(true);
    timer->setTimerType(Qt::PreciseTimer);
    QObject::connect(timer, &QTimer::timeout, timer, [timer, callback = std::move(callback)] {
        // The callback may run for long or end the program; the timer is out of its way by then.
        const auto call = callback;
        timer->deleteLater();
        call();
    });
    // A timer of Qt counts 31 bits, 24 days; no program runs that long without being woken for something else.
    timer->start(std::clamp(delay, milliseconds(0), milliseconds(std::numeric_limits<int>::max())));
    return [timer = QPointer(timer)] { delete timer.data(); };
}

} // namespace ostrel
