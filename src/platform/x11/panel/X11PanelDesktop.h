#pragma once

#include "app/tray/PanelDesktop.h"
#include "platform/x11/base/X11Connection.h"
#include "platform/x11/panel/X11Selections.h"

#include <QSocketNotifier>

#include <functional>
#include <memory>
#include <optional>

namespace ostrel {

/// The panel's X server, XWayland as well, over a connection of its own. Where that breaks, what was known last stays,
/// and no clicks are told any more. Needs an event loop.
class X11PanelDesktop final : public PanelDesktop
{
    Q_OBJECT

public:
    explicit X11PanelDesktop(std::shared_ptr<X11Connection> connection);

    bool isLost() const override;
    bool isComposited() const override { return m_isComposited; }
    std::optional<QColor> trayForeground() const override { return m_trayForeground; }
    std::unique_ptr<ClickMonitor> monitorClicks(std::function<void()> pressed) override;
    void setShadow(QWindow &window, int width) override;
    void keepOutOfLists(QWindow &window) override;

private:
    void readEvents();
    void readCompositor();
    void readTray();
    std::optional<QColor> readTrayColors() const;
    void noteProperty(const xcb_generic_event_t &event);

    const std::shared_ptr<X11Connection> m_connection;
    /// What the events that were just read bring; handled after them, when the server may be asked again.
    struct News {
        bool compositor = false;
        bool tray = false;
        bool press = false;
    } m_news;
    X11SelectionOwner m_compositor;
    X11SelectionOwner m_trayOwner;
    const X11Subscription m_properties;
    xcb_window_t m_tray = XCB_WINDOW_NONE;
    bool m_isComposited = false;
    std::optional<QColor> m_trayForeground;
    std::function<void()> m_pressed;
    QSocketNotifier m_notifier;
};

} // namespace ostrel
