#pragma once

#include "app/tray/PanelDesktop.h"
#include "platform/x11/base/X11Connection.h"

#include <functional>
#include <memory>

namespace ostrel {

/// Presses of mouse buttons anywhere on the X screen. They are read as the devices tell them, before any window gets
/// them, so a click that opens the window manager's own menu is told as well.
class X11ClickMonitor final : public PanelDesktop::ClickMonitor
{
public:
    /// @param noted called while events are dispatched: it neither ends the monitor nor asks the server anything
    /// @return null where the server has no such events
    static std::unique_ptr<X11ClickMonitor> start(std::shared_ptr<X11Connection> connection,
                                                  std::function<void()> noted);
    X11ClickMonitor(const X11ClickMonitor &) = delete;
    X11ClickMonitor &operator=(const X11ClickMonitor &) = delete;
    ~X11ClickMonitor() override;

private:
    X11ClickMonitor(std::shared_ptr<X11Connection> connection, std::uint8_t extension, std::function<void()> noted);
    void select(std::uint32_t events) const;

    const std::shared_ptr<X11Connection> m_connection;
    const X11Subscription m_events;
};

} // namespace ostrel
