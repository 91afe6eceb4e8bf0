#include "platform/session/WaylandForegroundSource.h"

#include <utility>

namespace ostrel {

WaylandForegroundSource::WaylandForegroundSource(std::unique_ptr<ForegroundSource> x11,
                                                 std::unique_ptr<ForegroundSource> programs)
    : m_x11(std::move(x11)), m_programs(std::move(programs))
{}

std::optional<ForegroundApplication> WaylandForegroundSource::frontmostApplication()
{
    // Compositors tell their X server that no window is active while one of Wayland is.
    auto application = m_x11 ? m_x11->frontmostApplication() : std::nullopt;
    m_isX11Window = application.has_value();
    return m_isX11Window ? application : m_programs->frontmostApplication();
}

std::optional<FocusedWindow> WaylandForegroundSource::focusedWindow()
{
    if (!m_isX11Window)
        return m_programs->focusedWindow();
    auto window = m_x11->focusedWindow();
    // Where the compositor has scaled it to, its X server doesn't know.
    if (window)
        window->frame.reset();
    return window;
}

} // namespace ostrel
