#include "platform/logind/LogindEvents.h"

#include "base/Log.h"
#include "platform/logind/LogindWatch.h"
#include "platform/logind/ScreenSaverWatch.h"
#include "platform/sessionbus/BusThread.h"
#include "platform/sessionbus/SessionBusAddress.h"

namespace ostrel {

LogindEvents::Buses LogindEvents::environmentBuses()
{
    return {.system = systemBusAddress().toLocal8Bit(), .session = sessionBusAddress().toLocal8Bit()};
}

LogindEvents::LogindEvents(Buses buses, std::unique_ptr<Clock> clock)
    : m_buses(std::move(buses)), m_clock(std::move(clock))
{}

LogindEvents::~LogindEvents()
{
    if (m_withdrawTimer)
        m_withdrawTimer();
}

void LogindEvents::connectNotify(const QMetaMethod & /*signal*/)
{
    if (!m_systemBus)
        start();
}

void LogindEvents::start()
{
    const TellNews tell = [this](WorkspaceNews news) {
        m_news.post([this, news = std::move(news)] { std::visit([this](const auto &each) { receive(each); }, news); });
    };
    m_systemBus = std::make_unique<BusThread>(
        BusThread::Bus{.address = m_buses.system, .name = "system bus", .firstPause = m_buses.firstPause},
        std::make_unique<LogindWatch>(tell, m_buses.firstPause));
    if (!m_buses.session.isEmpty())
        m_sessionBus = std::make_unique<BusThread>(
            BusThread::Bus{.address = m_buses.session, .name = "session bus", .firstPause = m_buses.firstPause},
            std::make_unique<ScreenSaverWatch>(tell));
}

void LogindEvents::receive(const News::WillSleep &news)
{
    Q_EMIT willSleep(news.hold);
}

void LogindEvents::receive(const News::DidWake & /*news*/)
{
    Q_EMIT didWake();
}

void LogindEvents::receive(const News::WillShutDown &news)
{
    Q_EMIT willShutDown(news.hold);
}

void LogindEvents::receive(const News::LockRequest &news)
{
    if (news.isLock)
        m_lockState.request();
    else
        m_lockState.withdrawRequest();
    lockStateChanged();
}

void LogindEvents::receive(const News::Lock &news)
{
    m_lockState.say(news.voice, news.isLocked);
    lockStateChanged();
}

void LogindEvents::lockStateChanged()
{
    if (!m_lockState.isOpenRequest() && m_withdrawTimer) {
        std::exchange(m_withdrawTimer, nullptr)();
    } else if (m_lockState.isOpenRequest() && !m_withdrawTimer) {
        m_withdrawTimer = m_clock->schedule(confirmationPatience, [this] {
            m_withdrawTimer = nullptr;
            qCInfo(logPlatform, "The session was to be locked, and nobody says that it is.");
            receive(News::LockRequest{.isLock = false});
        });
    }
    const bool isLocked = m_lockState.isLocked();
    if (isLocked == m_isLocked)
        return;
    m_isLocked = isLocked;
    Q_EMIT lockedChanged(isLocked); // the last, for whoever hears it may destroy this
}

} // namespace ostrel
