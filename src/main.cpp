#include "app/CommandLine.h"
#include "app/StandardDescriptors.h"
#include "model/SystemSettingsOpener.h"
#include "observer/QProcessLauncher.h"
#include "platform/defaults/QSettingsUserDefaults.h"
#include "platform/instance/BusRemoteControl.h"
#include "platform/instance/BusRunningApplication.h"
#include "platform/secretfile/FallbackSecretStore.h"
#include "platform/secretfile/FileSecretStore.h"
#include "platform/secretservice/SecretServiceStore.h"
#include "platform/session/SessionPlatform.h"
#include "platform/session/SessionProbes.h"

#include <QCoreApplication>

using namespace ostrel;

/// The one place that knows the concrete platform.
int main(int argc, char **argv)
{
    fillClosedStandardDescriptors();
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("ostrel"));
    QCoreApplication::setApplicationVersion(QStringLiteral(OSTREL_VERSION));

    const QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    const SessionPlatform session = makeSessionPlatform(environment);
    SecretServiceStore keyring;
    FileSecretStore secretFile;
    FallbackSecretStore secrets(keyring, secretFile);
    QSettingsUserDefaults userDefaults;
    QProcessLauncher processes;
    BusRunningApplication runningApplication;
    BusRemoteControl remoteControl;
    NullSystemSettingsOpener settingsOpener;
    const Platform platform{.displays = *session.displays,
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
                            .processes = processes,
                            .runningApplication = runningApplication,
                            .remoteControl = remoteControl,
                            .desktop = makeDesktopProbes(environment)};
    return printResult(runCommandLine(QCoreApplication::arguments(), platform));
}
