#pragma once

#include "app/doctor/DesktopFacts.h"
#include "context/PrivacyRules.h"
#include "update/InstalledProgram.h"

#include <functional>

namespace ostrel {

class AccessibilityAccess;
class AccessibilityTree;
class Autostart;
class BrowserScriptRunner;
class DialogHost;
class DisplaySource;
class ForegroundSource;
class Keyring;
class ProcessLauncher;
class RemoteControl;
class RunningApplication;
class ScreenCaptureAccess;
class SecretStore;
class SystemSettingsOpener;
class UserDefaults;
class WorkspaceEvents;

/// The objects behind which the running desktop hides, chosen once by main. They outlive whoever is given this.
struct Platform {
    DisplaySource &displays;
    ScreenCaptureAccess &screenCaptureAccess;
    ForegroundSource &foreground;
    /// Two, because context samples and permission checks ask on threads of their own.
    AccessibilityAccess &contextAccessibility;
    AccessibilityAccess &permissionAccessibility;
    AccessibilityTree &accessibilityTree;
    BrowserScriptRunner &browserScripts;
    /// Which windows are nobody's business, by the rules as they stand at the time of asking. Any thread.
    std::function<bool(const WindowIdentity &)> excludesWindow;
    /// Sleep, shutdown and the lock of the session.
    WorkspaceEvents &workspace;
    SecretStore &secrets;
    /// What `secrets` can use of the desktop.
    Keyring &keyring;
    UserDefaults &userDefaults;
    SystemSettingsOpener &settingsOpener;
    Autostart &autostart;
    /// How the user is asked.
    DialogHost &dialogs;
    ProcessLauncher &processes;
    /// The program that records, as others reach it.
    RunningApplication &runningApplication;
    /// How others reach this program while it records.
    RemoteControl &remoteControl;
    DesktopProbes desktop;
    /// The program that runs, as its updates see it. Blocks for a moment.
    std::function<InstalledProgram()> program = InstalledProgram::ofThisProgram;
};

} // namespace ostrel
