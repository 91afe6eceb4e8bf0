#pragma once

#include <QColor>
#include <QObject>

#include <functional>
#include <memory>
#include <optional>

class QWindow;

namespace ostrel {

/// What the panel and its icon need of the window system and can't have from the toolkit. Main thread.
class PanelDesktop : public QObject
{
    Q_OBJECT

public:
    /// Mouse buttons are told of while it lives.
    class ClickMonitor
    {
    public:
        virtual ~ClickMonitor() = default;
    };

    /// Whether the toolkit has lost its window system. It doesn't live on without: see `DesktopLoss`.
    virtual bool isLost() const { return false; }
    /// Whether windows can be seen through, as a compositor makes them; it may come and go.
    virtual bool isComposited() const = 0;
    /// The colour in which the tray that our icon is docked into draws; none where it doesn't say.
    virtual std::optional<QColor> trayForeground() const = 0;
    /// Tells of every press of the left or the right mouse button, whatever it hits: our own windows, others', or the
    /// bare desktop.
    /// @param pressed may end the monitoring
    /// @return null where the window system keeps such presses to itself
    virtual std::unique_ptr<ClickMonitor> monitorClicks(std::function<void()> pressed) = 0;
    /// Has a window's margin be a shadow: clicks go through it, and window managers place the window by what is inside.
    /// @param width logical pixels on each side; 0 for none
    virtual void setShadow(QWindow &window, int width) = 0;
    /// Has a window be in no task bar and no list of windows, the next time that it is shown; until then only. Nothing
    /// where programs have no say in that.
    /// @param window not shown now
    virtual void keepOutOfLists(QWindow &window) = 0;

Q_SIGNALS:
    void compositedChanged();
    void trayForegroundChanged();
};

} // namespace ostrel
