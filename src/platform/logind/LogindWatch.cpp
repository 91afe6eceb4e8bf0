#include "platform/logind/LogindWatch.h"

#include "base/Log.h"
#include "platform/logind/LogindNames.h"

#include <algorithm>

namespace ostrel {

LogindWatch::LogindWatch(TellNews tell, std::chrono::milliseconds firstPause)
    : m_tell(std::move(tell)), m_firstPause(firstPause), m_sessionLock(m_tell), m_pause(firstPause)
{}

void LogindWatch::visit(const BusLine &line, BusLoop &loop)
{
    m_line = line;
    m_loop = &loop;
    m_pause = m_firstPause;
    m_signals = std::make_unique<BusSignals>(line.connection);
    m_signals->listenToOwner(LogindNames::service, [this](bool isThere) {
        wakeIfAsleep(); // the sleep that was announced is off with whoever announced it
        if (isThere)
            begin();
    });
    const auto listen = [this](const char *name, void (LogindWatch::*handle)(bool)) {
        m_signals->listen({.sender = LogindNames::service,
                           .path = LogindNames::path,
                           .interface = LogindNames::manager,
                           .name = name,
                           .type = "(b)"},
                          [this, handle](GVariant *arguments) {
                              const GlibHandle<GVariant> isStart(g_variant_get_child_value(arguments, 0));
                              (this->*handle)(g_variant_get_boolean(isStart.get()) != FALSE);
                          });
    };
    listen("PrepareForSleep", &LogindWatch::prepareForSleep);
    listen("PrepareForShutdown", &LogindWatch::prepareForShutdown);
    if (hasOwner(line, LogindNames::service).value_or(false))
        begin();
    else
        qCInfo(logPlatform, "logind is not on the system bus. Until it comes, sleep is noticed only afterwards.");
}

void LogindWatch::leave()
{
    m_nextTry.reset();
    m_signals.reset();
    m_inhibitor.giveBack();
    m_sessionLock.leave();
    wakeIfAsleep();
}

void LogindWatch::begin()
{
    takeInhibitor();
    m_sessionLock.follow(m_line);
}

void LogindWatch::prepareForSleep(bool isStart)
{
    m_isAsleep = isStart;
    if (isStart) {
        m_tell(News::WillSleep{.hold = m_inhibitor.handOver()});
        return;
    }
    m_tell(News::DidWake{});
    if (!m_inhibitor.isHeld())
        takeInhibitor();
}

void LogindWatch::prepareForShutdown(bool isStart)
{
    if (isStart)
        m_tell(News::WillShutDown{.hold = m_inhibitor.handOver()});
    else if (!m_inhibitor.isHeld()) // it was called off
        takeInhibitor();
}

/// Whoever would tell of the wake is gone, and a program that runs is not asleep.
void LogindWatch::wakeIfAsleep()
{
    if (std::exchange(m_isAsleep, false))
        m_tell(News::DidWake{});
}

void LogindWatch::takeInhibitor()
{
    GlibHandle<GError> error;
    if (m_inhibitor.take(m_line, error)) {
        m_pause = m_firstPause;
        m_nextTry.reset();
        return;
    }
    if (m_loop->isStopped())
        return;
    if (!m_nextTry)
        qCInfo(logPlatform, "logind doesn't wait for us before a sleep: %s. It is asked again from time to time.",
               error->message);
    tryInhibitorLater();
}

void LogindWatch::tryInhibitorLater()
{
    m_nextTry = m_loop->after(m_pause, [this] {
        // After a sleep it is taken anyway.
        if (!m_isAsleep)
            takeInhibitor();
    });
    m_pause = std::min(2 * m_pause, BusThread::longestPause);
}

} // namespace ostrel
