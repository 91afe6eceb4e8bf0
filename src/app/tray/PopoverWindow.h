#pragma once

#include <QObject>
#include <QRect>

namespace ostrel {

/// The window under the tray's icon, as the controller handles it. Main thread.
class PopoverWindow : public QObject
{
    Q_OBJECT

public:
    virtual bool isShown() const = 0;
    /// Shows it by the icon, in front, with the keyboard.
    virtual void showAt(const QRect &icon) = 0;
    virtual void hide() = 0;

Q_SIGNALS:
    /// Escape was pressed in it and nothing in it wanted that.
    void escapePressed();
    /// Ctrl+Q was pressed in it.
    void quitPressed();
    /// Another window has the keyboard now, or none, and not because of a dialog of ours; or a mouse button went down
    /// elsewhere.
    void leftByUser();
};

} // namespace ostrel
