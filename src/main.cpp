#include "app/CommandLine.h"
#include "app/NoDialogs.h"
#include "app/StandardDescriptors.h"
#include "app/tray/PanelDialogs.h"
#include "app/tray/TrayApplication.h"
#include "observer/QProcessLauncher.h"
#include "observer/RepoLocator.h"
#include "platform/defaults/QSettingsUserDefaults.h"
#include "platform/instance/BusRemoteControl.h"
#include "platform/instance/BusRunningApplication.h"
#include "platform/secretfile/FallbackSecretStore.h"
#include "platform/secretfile/FileSecretStore.h"
#include "platform/secretservice/SecretServiceStore.h"
#include "platform/session/SessionPlatform.h"
#include "platform/session/SessionProbes.h"
#include "platform/systemsettings/DesktopSettingsOpener.h"

#include <QApplication>

using namespace ostrel;

namespace {

/// The one place that knows the concrete platform.
template <class Run>
int withPlatform(DialogHost &dialogs, Run run)
{
    const QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    const SessionPlatform session = makeSessionPlatform(environment);
    SecretServiceStore keyring;
    FileSecretStore secretFile;
    FallbackSecretStore secrets(keyring, secretFile);
    QSettingsUserDefaults userDefaults;
    QProcessLauncher processes;
    BusRunningApplication runningApplication;
    BusRemoteControl remoteControl;
    DesktopSettingsOpener settingsOpener(environment, RepoLocator::forThisProgram().resourcesDirectory +
                                                          QLatin1String("/doc/permissions.html"));
    return run(Platform{.displays = *session.displays,
                        .screenCaptureAccess = *session.screenCaptureAccess,
                        .foreground = *session.foreground,
                        .contextAccessibility = *session.contextAccessibility,
                        .permissionAccessibility = *session.permissionAccessibility,
                        .accessibilityTree = *session.accessibilityTree,
                        .browserScripts = *session.browserScripts,
                        .excludesWindow = session.excludesWindow,
                        .workspace = *session.workspace,
                        .secrets = secrets,
                        .keyring = keyring,
                        .userDefaults = userDefaults,
                        .settingsOpener = settingsOpener,
                        .dialogs = dialogs,
                        .processes = processes,
                        .runningApplication = runningApplication,
                        .remoteControl = remoteControl,
                        .desktop = makeDesktopProbes(environment)});
}

void describeProgram()
{
    QCoreApplication::setApplicationName(QStringLiteral("ostrel"));
    QCoreApplication::setApplicationVersion(QStringLiteral(OSTREL_VERSION));
}

int runTray(int argc, char **argv)
{
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

int runCommands(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    describeProgram();
    NoDialogs dialogs;
    return withPlatform(dialogs, [](const Platform &platform) {
        return printResult(runCommandLine(QCoreApplication::arguments(), platform));
    });
}

} // namespace

int main(int argc, char **argv)
{
    fillClosedStandardDescriptors();
    const bool hasDisplay = qEnvironmentVariableIsSet("DISPLAY") || qEnvironmentVariableIsSet("WAYLAND_DISPLAY");
    return argc <= 1 && hasDisplay ? runTray(argc, argv) : runCommands(argc, argv);
}
