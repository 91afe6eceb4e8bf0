#pragma once

#include <QByteArray>
#include <QStringList>

#include <memory>
#include <mutex>

namespace ostrel {

class WaylandOutputs;

/// Which monitors a Wayland compositor, any of them, shows something on: for those who get its pictures by other ways.
/// Has a connection of its own, from the first question on. Any thread.
class WaylandMonitors
{
public:
    /// @param display as in $WAYLAND_DISPLAY; empty means that $WAYLAND_DISPLAY decides, at each connection
    explicit WaylandMonitors(QByteArray display = {});
    WaylandMonitors(const WaylandMonitors &) = delete;
    WaylandMonitors &operator=(const WaylandMonitors &) = delete;
    ~WaylandMonitors();

    /// By maker and model, in order, and several of one model as often as they are there; by connector where a model
    /// isn't told. (Docks name their connectors anew at each plugging.) Empty while there is no compositor to ask.
    /// Waits only for a description that it hasn't had yet, and for that two seconds at the most.
    QStringList names();

private:
    const QByteArray m_display;
    std::mutex m_mutex; ///< of what follows
    std::shared_ptr<WaylandOutputs> m_outputs;
};

} // namespace ostrel
