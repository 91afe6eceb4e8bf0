#pragma once

#include <QList>
#include <QPointF>
#include <QRectF>
#include <QString>
#include <optional>

namespace ostrel {

struct ForegroundApplication {
    std::optional<QString> localizedName;
    std::optional<QString> bundleIdentifier; ///< the desktop-file id without ".desktop"
    qint32 processIdentifier = 0;            ///< 0 where the window system doesn't tell
    QString windowClass = {};                ///< both parts of WM_CLASS, a blank between them; the app id on Wayland
};

struct FocusedWindow {
    std::optional<QString> title;
    std::optional<QRectF> frame; ///< with its decorations, desktop coordinates
};

/// A fact that a desktop doesn't give, in words for the user.
struct UnavailableFact {
    QString fact;   ///< what is missing: "window title", "pointer position", ...
    QString reason; ///< goes on after "because": "sway doesn't tell where the pointer is"

    QString text() const { return QStringLiteral("%1: not available on this desktop, because %2").arg(fact, reason); }

    bool operator==(const UnavailableFact &) const = default;
};

/// What the window system knows of the front-most application. Nothing of a window is kept from one sample to the next;
/// what its application is called may have been looked up a little earlier. Every call may block for a round trip; all
/// calls come from one worker thread at a time. What can't be found out is absent, never an error.
class ForegroundSource
{
public:
    virtual ~ForegroundSource() = default;

    /// A sample begins here.
    virtual std::optional<ForegroundApplication> frontmostApplication() = 0;
    /// The focused window of the application that `frontmostApplication` named last, so that a change of window between
    /// the two calls never gives one application another's title. As of this call or of that one.
    virtual std::optional<FocusedWindow> focusedWindow() = 0;
    /// Desktop coordinates: origin at the main display's top-left corner, y downwards.
    virtual std::optional<QPointF> mouseLocation() = 0;
    /// Which of these facts this desktop never gives, and why. Not what merely happens to be absent now.
    virtual QList<UnavailableFact> unavailableFacts() = 0;
};

} // namespace ostrel
