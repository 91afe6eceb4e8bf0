#pragma once

#include "context/ForegroundSource.h"

#include <memory>

namespace ostrel {

/// The front-most application where the compositor itself doesn't tell it. Its X server tells whether the active window
/// is one of X11 programs, many of which are on no accessibility bus; the active windows of all others are told by the
/// programs.
///
/// A compositor that starts its X server only when it is needed starts it for this.
class WaylandForegroundSource final : public ForegroundSource
{
public:
    /// @param x11 the windows of X11 programs; null where the session has no X server
    /// @param programs what programs tell of themselves
    WaylandForegroundSource(std::unique_ptr<ForegroundSource> x11, std::unique_ptr<ForegroundSource> programs);

    std::optional<ForegroundApplication> frontmostApplication() override;
    std::optional<FocusedWindow> focusedWindow() override;
    /// The X server knows where the pointer is only while it is over windows of its own.
    std::optional<QPointF> mouseLocation() override { return m_programs->mouseLocation(); }
    QList<UnavailableFact> unavailableFacts() override { return m_programs->unavailableFacts(); }

private:
    std::unique_ptr<ForegroundSource> m_x11;
    std::unique_ptr<ForegroundSource> m_programs;
    bool m_isX11Window = false; ///< what was told last
};

} // namespace ostrel
