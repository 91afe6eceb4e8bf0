#pragma once

#include <QObject>
#include <QRect>
#include <QString>

namespace ostrel {

/// Our item in the desktop's tray, as the controller handles it. Main thread.
class TrayItem : public QObject
{
    Q_OBJECT

public:
    /// Puts it into the tray; where there is none yet, as soon as there is one.
    virtual void show() = 0;
    virtual void setRecording(bool recording) = 0;
    virtual void setToolTip(const QString &text) = 0;
    /// Where it is on the desktop. Where the tray does not tell, around the pointer: the item has just been clicked.
    virtual QRect geometry() const = 0;
    /// Opens the context menu at the item.
    virtual void popUpMenu() = 0;

Q_SIGNALS:
    /// A click of the left button.
    /// @param secondary the Control key was held
    void clicked(bool secondary);
    /// The tray opens the context menu by itself.
    void menuAboutToShow();
    /// "Quit Tamsk Ostrel"
    void quitChosen();
};

} // namespace ostrel
