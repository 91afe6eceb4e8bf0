#pragma once

#include "capture/DisplaySource.h"
#include "capture/ScreenCaptureAccess.h"
#include "capture/WorkspaceEvents.h"
#include "context/AccessibilityAccess.h"
#include "context/AccessibilityTree.h"
#include "context/BrowserScriptRunner.h"
#include "context/ForegroundSource.h"
#include "context/PrivacyRules.h"

#include <QProcessEnvironment>
#include <functional>
#include <memory>

namespace ostrel {

/// The means that the running session offers. Nothing is connected before its first use.
struct SessionPlatform {
    std::unique_ptr<DisplaySource> displays;
    std::unique_ptr<ScreenCaptureAccess> screenCaptureAccess;
    std::unique_ptr<ForegroundSource> foreground;
    /// One for the context samples and one for the permission checks, which run on different threads.
    std::unique_ptr<AccessibilityAccess> contextAccessibility;
    std::unique_ptr<AccessibilityAccess> permissionAccessibility;
    std::unique_ptr<AccessibilityTree> accessibilityTree;
    std::unique_ptr<BrowserScriptRunner> browserScripts;
    /// By the privacy rules as they stand at the time of asking; any thread.
    std::function<bool(const WindowIdentity &)> excludesWindow;
    std::unique_ptr<WorkspaceEvents> workspace;
};

/// Whether the environment is that of a Wayland session, even where DISPLAY leads to a translation layer for X.
bool isWaylandSession(const QProcessEnvironment &environment);

/// What the running session tells of the application in front. One thread at a time; connected at its first use.
std::unique_ptr<ForegroundSource> makeForegroundSource(const QProcessEnvironment &environment);

/// Looks at the session's environment and chooses. Where nothing fits, the objects report no capability and why.
SessionPlatform makeSessionPlatform(const QProcessEnvironment &environment);

} // namespace ostrel
