#pragma once

namespace ostrel {

class AccessibilityAccess;
class DisplaySource;
class ForegroundSource;
class ProcessLauncher;
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
    UserDefaults &userDefaults;
    SystemSettingsOpener &settingsOpener;
    ProcessLauncher &processes;
};

} // namespace ostrel
