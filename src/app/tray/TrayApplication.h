#pragma once

#include "app/ModelHost.h"
#include "app/Platform.h"
#include "app/ProgramUpdates.h"
#include "app/TerminationSignals.h"
#include "app/popover/PopoverModel.h"
#include "app/tray/PanelPlatform.h"
#include "app/tray/StatusItemController.h"
#include "base/TaskScope.h"

#include <memory>
#include <stop_token>

namespace ostrel {

/// The program without arguments: the icon in the tray and the panel under it, until the user quits. It needs a
/// QApplication. Main thread.
class TrayApplication
{
public:
    TrayApplication(const Platform &platform, const PanelPlatform &panel);
    ~TrayApplication();

    /// Shows the panel of the one that runs already, where there is one.
    /// @return the exit status
    static int runOrActivate(const Platform &platform, const PanelPlatform &panel);

private:
    int run();
    /// The program that is to be started in our place; empty for none.
    const QString &successor() const { return m_successor; }
    Task<> start(std::stop_token stop);
    void end(EndingPace pace);
    bool grantQuit();
    void endWithoutDesktop();
    void finish();
    Task<> installAndLeave(std::stop_token stop);
    void endWithout(qint64 lostFrames);
    void relaunch(const QString &program);
    void activate();
    void showStatusItem();
    std::unique_ptr<PopoverWindow> makePanel();

    UserDefaults &m_defaults;
    Autostart &m_autostart;
    const InstalledProgram m_program; ///< read before there are events to be handled
    const PanelPlatform m_panel;
    QString m_successor;
    ModelHost m_host;
    std::unique_ptr<ProgramUpdates> m_updates;
    std::unique_ptr<PopoverModel> m_popoverModel;
    std::unique_ptr<StatusItemController> m_statusItem;
    bool m_opensWhenStarted = false; ///< the panel was asked for before there was one
    bool m_isDesktopLost = false;
    bool m_isFinished = false; ///< the model has quit
    bool m_isLeaving = false;  ///< all else has come to its end, too
    TaskScope m_tasks;
};

} // namespace ostrel
