#pragma once

#include "app/tray/PanelDesktop.h"
#include "app/tray/TrayInk.h"
#include "app/tray/TrayItem.h"

#include <QMenu>
#include <QSystemTrayIcon>
#include <QTimer>
#include <optional>

namespace ostrel {

/// The item in a StatusNotifierItem or XEmbed tray, whichever the desktop has. It writes in the colour that stands out
/// from the panel, as far as that is known (`trayInk`).
class DesktopTrayItem final : public TrayItem
{
    Q_OBJECT

public:
    /// The desktop outlives this object.
    explicit DesktopTrayItem(const PanelDesktop &desktop);

    void show() override;
    void setRecording(bool recording) override;
    void setToolTip(const QString &text) override { m_icon.setToolTip(text); }
    QRect geometry() const override;
    void popUpMenu() override;
    /// The colour scheme that the user has asked the desktop for, where there is such a wish.
    void setWantsDark(std::optional<bool> dark);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void onActivated(QSystemTrayIcon::ActivationReason reason);
    TraySurroundings surroundings() const;
    void draw();

    QMenu m_menu;
    QSystemTrayIcon m_icon;
    const PanelDesktop &m_desktop;
    bool m_isRecording = false;
    std::optional<bool> m_wantsDark;
    /// A tray takes a moment to give us our place, and only then its colour can be seen.
    QTimer m_settled;
};

} // namespace ostrel
