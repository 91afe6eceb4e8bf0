#pragma once

#include "context/ForegroundSource.h"

#include <QByteArray>

#include <functional>
#include <memory>

namespace ostrel {

class X11Connection;

/// The active window by the window manager's hints (EWMH), and the pointer. It connects at the first call; a
/// connection that was lost is opened again by the next call.
///
/// One round trip for the application and its window while that stays the active one, else three; one for the pointer;
/// well below a millisecond together. The window is asked about along with its application where the sample before
/// asked about it, and told once: the first sample after the user's consent has ended still reads it, for nobody.
class X11ForegroundSource final : public ForegroundSource
{
public:
    /// Names the application of a window by its class; the process identifier is filled in here.
    using ApplicationLookup = std::function<ForegroundApplication(const QString &windowClass)>;

    /// @param display as in $DISPLAY; empty means that $DISPLAY decides
    X11ForegroundSource(QByteArray display, ApplicationLookup lookup);
    ~X11ForegroundSource() override;

    std::optional<ForegroundApplication> frontmostApplication() override;
    std::optional<FocusedWindow> focusedWindow() override;
    std::optional<QPointF> mouseLocation() override;
    QList<UnavailableFact> unavailableFacts() override;

private:
    X11Connection *connection();
    void forgetWindow();

    QByteArray m_display;
    ApplicationLookup m_lookup;
    std::unique_ptr<X11Connection> m_connection;
    /// The window whose application was told last; of this connection.
    std::optional<quint32> m_window;
    bool m_askedWindow = false;                ///< since then
    std::optional<FocusedWindow> m_readWindow; ///< with its application, and not told yet
};

} // namespace ostrel
