#pragma once

#include "app/tray/PopoverWindow.h"
#include "app/tray/TrayItem.h"

#include <QObject>
#include <chrono>
#include <functional>
#include <memory>

namespace ostrel {

class AppModel;
class Clock;

/// The icon in the tray and the panel that a click on it opens and closes. Main thread.
class StatusItemController : public QObject
{
    Q_OBJECT

public:
    using MakePanel = std::function<std::unique_ptr<PopoverWindow>()>;

    /// The panel is made when it is shown first, and kept from then on. References outlive this object.
    StatusItemController(AppModel &model, Clock &clock, std::unique_ptr<TrayItem> statusItem, MakePanel makePanel);
    ~StatusItemController() override;

    /// Puts the icon into the tray and keeps it in step with the recording: the dot is there while the observer
    /// records and no stop was asked for.
    void setUp();
    void showPanel();
    void closePanel();
    bool isPanelShown() const { return m_panel && m_panel->isShown(); }

private:
    void handleStatusItemClick(bool secondary);
    void makePanel();
    void noteLeaving();
    void quitFromStatusMenu();

    /// A click on the icon is told when the button is let go of, and closes the panel when it goes down: it is a press
    /// outside the panel, and may take the keyboard from it. Nobody gets elsewhere and back to the icon in this time.
    static constexpr std::chrono::milliseconds sameClick{500};

    AppModel &m_model;
    Clock &m_clock;
    const std::unique_ptr<TrayItem> m_statusItem;
    const MakePanel m_makePanel;
    std::unique_ptr<PopoverWindow> m_panel;
    bool m_hasJustBeenLeft = false; ///< the panel was closed a moment ago because the user went elsewhere
    std::function<void()> m_withdrawForgetting;
};

} // namespace ostrel
