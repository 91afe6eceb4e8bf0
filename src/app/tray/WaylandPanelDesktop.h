#pragma once

#include "app/tray/PanelDesktop.h"

namespace ostrel {

/// A Wayland compositor: windows can always be seen through, and nobody is told of clicks that others get, so the panel
/// closes when it loses the keyboard. Needs no more of Wayland than the toolkit has.
class WaylandPanelDesktop final : public PanelDesktop
{
    Q_OBJECT

public:
    bool isComposited() const override { return true; }
    std::optional<QColor> trayForeground() const override { return std::nullopt; }
    std::unique_ptr<ClickMonitor> monitorClicks(std::function<void()> /*pressed*/) override { return nullptr; }
    void setShadow(QWindow &window, int width) override;
    void keepOutOfLists(QWindow & /*window*/) override {}
};

} // namespace ostrel
