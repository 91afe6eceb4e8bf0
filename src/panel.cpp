#include "ProgramPlatform.h"
#include "app/CommandLine.h"
#include "app/EndingLimit.h"
#include "app/StandardDescriptors.h"
#include "app/tray/PanelDesktop.h"
#include "app/tray/PanelDialogs.h"
#include "app/tray/TrayApplication.h"
#include "platform/appearance/PortalAppearance.h"
#include "platform/sessionbus/SessionBusAddress.h"
#include "platform/windowsystem/PanelWindowSystem.h"

#include <QApplication>
#include <QQuickWindow>
#include <malloc.h>

using namespace ostrel;

/// What `ostrel` without arguments becomes: the icon in the tray and the panel under it.
int main(int argc, char **argv)
{
    fillClosedStandardDescriptors();
    const EndingLimit endingLimit; // before the toolkit, whose connection may hang
    // Twenty threads that mostly sleep would otherwise get a heap of their own each, and keep what they once needed.
    ::mallopt(M_ARENA_MAX, 1);
    const auto windowSystem = choosePanelWindowSystem(QProcessEnvironment::systemEnvironment());
    if (!windowSystem)
        return printResult(CommandResult::failure(ExitFailed, windowSystem.error().localizedDescription));
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", windowSystem->toolkitPlatform);
    // A page of text needs no graphics card, whose driver would take more memory than all the rest of the program.
    if (qEnvironmentVariableIsEmpty("QT_QUICK_BACKEND"))
        QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
    QApplication application(argc, argv);
    describeProgram();
    QGuiApplication::setApplicationDisplayName(QStringLiteral("Tamsk Ostrel"));
    QGuiApplication::setDesktopFileName(QStringLiteral("com.tamsk.ostrel"));
    const auto desktop = windowSystem->makeDesktop();
    PortalAppearance appearance(sessionBusAddress().toLocal8Bit());
    PanelDialogs dialogs;
    const PanelPlatform panel{.dialogs = dialogs, .desktop = *desktop, .appearance = appearance};
    return withPlatform(dialogs,
                        [&panel](const Platform &platform) { return TrayApplication::runOrActivate(platform, panel); });
}
