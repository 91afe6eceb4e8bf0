#pragma once

#include "app/doctor/DesktopFacts.h"

namespace ostrel {

class AccessibilityAccess;
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

/// The objects behind which the running desktop hides, chosen once by main. They outlive whoever is given this.
struct Platform {
    DisplaySource &displays;
    ScreenCaptureAccess &screenCaptureAccess;
    ForegroundSource &foreground;
    /// Two, because context samples and permission checks ask on threads of their own.
    AccessibilityAccess &contextAccessibility;
    AccessibilityAccess &permissionAccessibility;
    SecretStore &secrets;
    /// What `secrets` can use of the desktop.
    Keyring &keyring;
    UserDefaults &userDefaults;
    SystemSettingsOpener &settingsOpener;
    ProcessLauncher &processes;
    /// The program that records, as others reach it.
    RunningApplication &runningApplication;
    /// How others reach this program while it records.
    RemoteControl &remoteControl;
    DesktopProbes desktop;
};

} // namespace ostrel
