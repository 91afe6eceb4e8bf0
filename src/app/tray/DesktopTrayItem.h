#pragma once

#include "app/tray/TrayItem.h"

#include <QColor>
#include <QMenu>
#include <QSystemTrayIcon>
#include <QTimer>

namespace ostrel {

/// The item in a StatusNotifierItem or XEmbed tray, whichever the desktop has. It writes in the colour that stands out
/// from the panel: from the panel's own background where the tray tells where we are, else by the desktop's palette.
class DesktopTrayItem final : public TrayItem
{
    Q_OBJECT

public:
    DesktopTrayItem();

    void show() override;
    void setRecording(bool recording) override;
    void setToolTip(const QString &text) override { m_icon.setToolTip(text); }
    QRect geometry() const override;
    void popUpMenu() override;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void onActivated(QSystemTrayIcon::ActivationReason reason);
    QColor labelColor() const;
    void draw();

    QMenu m_menu;
    QSystemTrayIcon m_icon;
    bool m_isRecording = false;
    /// A tray takes a moment to give us our place, and only then its colour can be seen.
    QTimer m_settled;
};

} // namespace ostrel
