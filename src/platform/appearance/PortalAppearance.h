#pragma once

#include "app/popover/AppearanceSource.h"
#include "base/Mailbox.h"

#include <QByteArray>

#include <functional>
#include <memory>

namespace ostrel {

class BusThread;

/// The colour scheme, the size of text and the motion that the user has chosen, as the desktop portal tells them
/// (org.freedesktop.portal.Settings). Where there is no bus or no portal, nothing is told. The bus is waited for on a
/// thread of its own; it begins when somebody follows. Main thread.
class PortalAppearance final : public AppearanceSource
{
public:
    /// @param bus the session bus's address; empty where there is none
    explicit PortalAppearance(QByteArray bus);
    ~PortalAppearance() override;

    void follow(std::function<void(const AppearanceWishes &)> tell) override;

private:
    const QByteArray m_bus;
    std::function<void(const AppearanceWishes &)> m_tell;
    Mailbox m_news;
    std::unique_ptr<BusThread> m_thread;
};

} // namespace ostrel
