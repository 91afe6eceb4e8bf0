#include "platform/wlroots/WaylandMonitors.h"

#include "platform/wlroots/WaylandOutputs.h"

#include <utility>

namespace ostrel {

namespace {

constexpr std::chrono::milliseconds patience{1'000};

/// @return null when there is no compositor, or it doesn't answer
std::shared_ptr<WaylandOutputs> openOutputs(const QByteArray &display)
{
    auto connection = WaylandConnection::open(display, patience);
    return connection ? WaylandOutputs::open(*std::move(connection)).value_or(nullptr) : nullptr;
}

} // namespace

WaylandMonitors::WaylandMonitors(QByteArray display) : m_display(std::move(display)) {}

WaylandMonitors::~WaylandMonitors() = default;

QStringList WaylandMonitors::names()
{
    const std::scoped_lock lock(m_mutex);
    if (m_outputs)
        m_outputs->connection().dispatchEvents();
    const bool isOpen = m_outputs && !m_outputs->connection().isBroken();
    // One that has come and gone since the last look can't be described, and costs the connection.
    const bool isDescribed = isOpen && (!m_outputs->hasNews() || m_outputs->refresh());
    if (!isDescribed)
        m_outputs = openOutputs(m_display);
    QStringList names;
    if (!m_outputs)
        return names;
    for (const WaylandOutput *output : m_outputs->all())
        names.append(output->look().model.isEmpty() ? output->look().name : output->look().model);
    names.sort();
    return names;
}

} // namespace ostrel
