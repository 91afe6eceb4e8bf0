#include "app/tray/TrayApplication.h"

#include "app/CommandLine.h"
#include "app/EndingLimit.h"
#include "app/RecordingProgram.h"
#include "app/RunningApplication.h"
#include "app/popover/AppearanceSource.h"
#include "app/tray/DesktopLoss.h"
#include "app/tray/DesktopTrayItem.h"
#include "app/tray/PanelDialogs.h"
#include "app/tray/PopoverPanel.h"
#include "app/tray/QuitRequests.h"
#include "update/UpdaterSupport.h"

#include <QApplication>
#include <QProcess>
#include <QSystemTrayIcon>

#include <chrono>
#include <thread>
#include <unistd.h>

namespace ostrel {

namespace {

using namespace std::chrono_literals;

int activateRunning(const Platform &platform, const Error &taken)
{
    const auto holder = RecorderLock::holder();
    const auto shown = holder ? platform.runningApplication.activate(holder->processId)
                              : std::expected<bool, RemoteFailure>(std::unexpected(RemoteFailure::NotThere));
    if (shown.value_or(false))
        return ExitSuccess;
    printMessage(QStringLiteral("ostrel: %1\n").arg(taken.localizedDescription));
    return ExitFailed;
}

} // namespace

TrayApplication::TrayApplication(const Platform &platform, const PanelPlatform &panel)
    : m_defaults(platform.userDefaults), m_autostart(platform.autostart), m_program(platform.program()), m_panel(panel),
      m_host(platform, [this] { finish(); }, [this] { activate(); }, [this](qint64 lost) { endWithout(lost); })
{
    m_panel.dialogs.setPanelOpener([this] { activate(); });
}

TrayApplication::~TrayApplication()
{
    m_panel.appearance.follow({});
    m_panel.dialogs.setPanelOpener({});
    m_panel.dialogs.setPanel(nullptr);
}

int TrayApplication::runOrActivate(const Platform &platform, const PanelPlatform &panel)
{
    auto lock = std::make_optional(beginRecordingProgram());
    if (!*lock)
        return activateRunning(platform, lock->error());
    QString successor;
    int status = 0;
    {
        TrayApplication application(platform, panel);
        status = application.run();
        successor = application.successor();
    }
    const EndingLimit::Lifted lifted; // an end in the middle of this would leave no program at all
    EndingLimit::setSuccessor({});    // it is started only once
    lock.reset();                     // it records as well
    if (!successor.isEmpty() && !QProcess::startDetached(successor, {}))
        printMessage(QStringLiteral("ostrel: The new version at %1 could not be started.\n").arg(successor));
    return status;
}

int TrayApplication::run()
{
    const TerminationSignals signals([this](EndingPace pace) { end(pace); }, endAtOnce);
    const DesktopLoss loss([this] { return m_panel.desktop.isLost(); }, [this] { endWithoutDesktop(); });
    const QuitRequests requests([this] { return grantQuit(); });
    QGuiApplication::setQuitOnLastWindowClosed(false);
    m_tasks.spawn([this](std::stop_token stop) { return start(std::move(stop)); });
    return QCoreApplication::exec();
}

Task<> TrayApplication::start(std::stop_token stop)
{
    co_await m_host.start(stop);
    if (stop.stop_requested())
        co_return;
    m_updates = std::make_unique<ProgramUpdates>(m_host.model(), m_host.clock(), m_defaults, m_program,
                                                 [this](const QString &path) { relaunch(path); });
    m_popoverModel = std::make_unique<PopoverModel>(
        PopoverModel::Dependencies{.model = m_host.model(),
                                   .defaults = m_defaults,
                                   .autostart = m_autostart,
                                   .clock = m_host.clock(),
                                   .appVersion = UpdaterSupport::appVersion(m_program.bundle),
                                   .checkForUpdates = m_updates->checkForUpdates()});
    showStatusItem();
    if (!QSystemTrayIcon::isSystemTrayAvailable())
        printMessage(
            QStringLiteral("ostrel: This desktop shows no tray. Start Tamsk Ostrel again to open its panel.\n"));
    if (m_opensWhenStarted)
        m_statusItem->showPanel();
}

void TrayApplication::showStatusItem()
{
    auto item = std::make_unique<DesktopTrayItem>(m_panel.desktop);
    m_panel.appearance.follow([this, item = item.get()](const AppearanceWishes &wishes) {
        m_popoverModel->appearance()->adopt(wishes);
        item->setWantsDark(wishes.dark);
    });
    m_statusItem = std::make_unique<StatusItemController>(m_host.model(), m_host.clock(), std::move(item),
                                                          [this] { return makePanel(); });
    m_statusItem->setUp();
}

std::unique_ptr<PopoverWindow> TrayApplication::makePanel()
{
    auto panel = std::make_unique<PopoverPanel>(*m_popoverModel, m_panel.dialogs.sheet(), m_panel.desktop,
                                                [this] { return m_host.model().nativeModalActive(); });
    m_panel.dialogs.setPanel(&panel->window());
    return panel;
}

void TrayApplication::activate()
{
    if (m_statusItem)
        m_statusItem->showPanel();
    else
        m_opensWhenStarted = true;
}

/// Whoever asks before we are ready is a session manager, and gives us as little time as a shutdown.
bool TrayApplication::grantQuit()
{
    if (m_isLeaving || !m_host.isStarted())
        return true;
    EndingLimit::begin();
    end(EndingPace::Prompt);
    return false;
}

/// An X server that ends, as with its session, takes its programs along at once. What has been recorded is worth the
/// moments that a shutdown gives it.
void TrayApplication::endWithoutDesktop()
{
    constexpr auto pause = 5ms;
    m_isDesktopLost = true;
    EndingLimit::begin();
    if (!m_host.isStarted())
        ::_exit(ExitFailed);
    AppModel &model = m_host.model();
    QObject::connect(&model, &AppModel::recordingEnded, &model, [&model](RecordingEnd reason) {
        if (reason != RecordingEnd::Requested)
            printMessage(QStringLiteral("ostrel: %1\n").arg(model.helperError().value_or(QString())));
    });
    model.quit();
    // The event loop would only come upon the loss again. Answers of threads are posted, as calls and to the mailboxes
    // of tasks, and do without it; but no timer runs, and nothing is drawn: that would need the server.
    const auto deadline = std::chrono::steady_clock::now() + AppModel::shutdownPatience;
    while (!m_isFinished) {
        for (const auto type : {QEvent::MetaCall, QEvent::User})
            QCoreApplication::sendPostedEvents(nullptr, type);
        if (!m_isFinished && std::chrono::steady_clock::now() >= deadline)
            model.abandonQuit();
        std::this_thread::sleep_for(pause);
    }
    ::_exit(ExitFailed);
}

/// The model has quit.
void TrayApplication::finish()
{
    m_isFinished = true;
    if (m_isDesktopLost)
        return;
    m_tasks.spawn([this](std::stop_token stop) { return installAndLeave(std::move(stop)); });
}

Task<> TrayApplication::installAndLeave(std::stop_token stop)
{
    // An update that is being installed brings its successor itself.
    if (m_successor.isEmpty() && m_updates && m_updates->controller() != nullptr) {
        const EndingLimit::Lifted lifted; // every step of an installation has its way back
        co_await m_updates->controller()->installOnQuit(stop);
    }
    if (stop.stop_requested())
        co_return;
    // All that is left is to let go of the desktop, which may be what hangs.
    if (!m_successor.isEmpty()) {
        EndingLimit::setSuccessor(m_successor);
        EndingLimit::begin();
    }
    m_isLeaving = true;
    QCoreApplication::quit();
}

/// Capture hangs at the very end.
void TrayApplication::endWithout(qint64 lostFrames)
{
    // In our place, so that nothing of us is left to be waited for; the recorder's lock goes with us.
    if (!m_successor.isEmpty())
        becomeProgram(m_successor);
    endWithoutCapture(lostFrames, ExitSuccess);
}

void TrayApplication::relaunch(const QString &program)
{
    m_successor = program;
    m_host.model().quit();
}

void TrayApplication::end(EndingPace pace)
{
    if (!m_host.isStarted())
        return QCoreApplication::quit();
    if (pace == EndingPace::Prompt)
        m_host.model().quitBeforeShutdown();
    else
        m_host.model().quit();
}

} // namespace ostrel
