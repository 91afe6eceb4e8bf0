#pragma once

#include "app/Platform.h"
#include "observer/QProcessLauncher.h"
#include "observer/RepoLocator.h"
#include "platform/autostart/XdgAutostart.h"
#include "platform/defaults/QSettingsUserDefaults.h"
#include "platform/instance/BusRemoteControl.h"
#include "platform/instance/BusRunningApplication.h"
#include "platform/secretfile/FallbackSecretStore.h"
#include "platform/secretfile/FileSecretStore.h"
#include "platform/secretservice/SecretServiceStore.h"
#include "platform/session/SessionPlatform.h"
#include "platform/session/SessionProbes.h"
#include "platform/systemsettings/DesktopSettingsOpener.h"

#include <QCoreApplication>
#include <QProcessEnvironment>

namespace ostrel {

/// What is started at login: the version that is current then, where several lie side by side.
inline QString programToStart()
{
    const InstalledProgram program = InstalledProgram::ofThisProgram();
    return program.installation ? program.installation->startPath()
                                : QCoreApplication::applicationDirPath() + QLatin1String("/ostrel");
}

/// The one place that knows the concrete platform: makes it, and runs the program on it.
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
    XdgAutostart autostart(programToStart);
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
                        .autostart = autostart,
                        .dialogs = dialogs,
                        .processes = processes,
                        .runningApplication = runningApplication,
                        .remoteControl = remoteControl,
                        .desktop = makeDesktopProbes(environment)});
}

inline void describeProgram()
{
    QCoreApplication::setApplicationName(QStringLiteral("ostrel"));
    QCoreApplication::setApplicationVersion(QStringLiteral(OSTREL_VERSION));
}

} // namespace ostrel
