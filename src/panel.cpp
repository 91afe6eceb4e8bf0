#include "ProgramPlatform.h"
#include "app/StandardDescriptors.h"
#include "app/tray/PanelDialogs.h"
#include "app/tray/TrayApplication.h"

#include <QApplication>

using namespace ostrel;

/// What `ostrel` without arguments becomes: the icon in the tray and the panel under it.
int main(int argc, char **argv)
{
    fillClosedStandardDescriptors();
    // A panel places itself under its icon, which only X11 lets it do; XWayland serves as well.
    if (qEnvironmentVariableIsSet("DISPLAY") && !qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "xcb");
    QApplication application(argc, argv);
    describeProgram();
    QGuiApplication::setApplicationDisplayName(QStringLiteral("Tamsk Ostrel"));
    QGuiApplication::setDesktopFileName(QStringLiteral("com.tamsk.ostrel"));
    PanelDialogs dialogs;
    return withPlatform(
        dialogs, [&dialogs](const Platform &platform) { return TrayApplication::runOrActivate(platform, dialogs); });
}
