#include "platform/appearance/PortalAppearance.h"

#include "platform/appearance/PortalSettings.h"
#include "platform/sessionbus/BusThread.h"

namespace ostrel {

PortalAppearance::PortalAppearance(QByteArray bus) : m_bus(std::move(bus)) {}

PortalAppearance::~PortalAppearance() = default;

void PortalAppearance::follow(std::function<void(const AppearanceWishes &)> tell)
{
    m_tell = std::move(tell);
    m_thread.reset();
    if (!m_tell || m_bus.isEmpty())
        return;
    m_thread = std::make_unique<BusThread>(BusThread::Bus{.address = m_bus, .name = "session bus"},
                                           std::make_unique<PortalSettings>([this](const AppearanceWishes &wishes) {
                                               m_news.post([this, wishes] {
                                                   if (m_tell)
                                                       m_tell(wishes);
                                               });
                                           }));
}

} // namespace ostrel
