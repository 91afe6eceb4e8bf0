#include "panel_probe.h"

#undef QApplication

#include <QEvent>
#include <QQuickWindow>

#include <cstdio>
#include <utility>

namespace {

using Clock = std::chrono::steady_clock;

double milliseconds(Clock::duration time)
{
    return std::chrono::duration<double, std::milli>(time).count();
}

void say(const char *what, Clock::duration time)
{
    std::fprintf(stderr, "bench %s %.2f\n", what, milliseconds(time));
}

} // namespace

bool MeasuredApplication::notify(QObject *receiver, QEvent *event)
{
    const Time before = Clock::now();
    ++m_depth;
    lookAt(receiver, *event);
    const bool isHandled = QApplication::notify(receiver, event);
    if (--m_depth > 0)
        return isHandled;
    m_busy += Clock::now() - before;
    if (std::exchange(m_hasDrawnFrame, false))
        say("frame", std::exchange(m_busy, {}));
    return isHandled;
}

void MeasuredApplication::lookAt(QObject *receiver, const QEvent &event)
{
    const bool isIcon = receiver->inherits("QSystemTrayIconSys");
    if (isIcon && event.type() == QEvent::Paint && !std::exchange(m_hasDrawnIcon, true)) {
        const std::chrono::nanoseconds started(qEnvironmentVariable("BENCH_STARTED_NS").toLongLong());
        say("icon", Clock::now().time_since_epoch() - started);
    } else if (isIcon && (event.type() == QEvent::MouseButtonPress || event.type() == QEvent::MouseButtonRelease)) {
        m_clicked = Clock::now();
        m_awaitsFirstFrame = true;
    } else if (event.type() == QEvent::Show && receiver != m_panel && receiver->inherits("QQuickView")) {
        m_panel = receiver;
        connect(qobject_cast<QQuickWindow *>(receiver), &QQuickWindow::frameSwapped, this,
                &MeasuredApplication::onFrame, Qt::DirectConnection);
    }
}

void MeasuredApplication::onFrame()
{
    m_hasDrawnFrame = true;
    if (std::exchange(m_awaitsFirstFrame, false))
        say("first-frame", Clock::now() - m_clicked);
}
