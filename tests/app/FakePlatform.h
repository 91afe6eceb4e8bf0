#pragma once

#include "app/NoDialogs.h"
#include "app/Platform.h"
#include "base/SerialQueue.h"
#include "support/FakeAccessibilityAccess.h"
#include "support/FakeAccessibilityTree.h"
#include "support/FakeAutostart.h"
#include "support/FakeBrowserScriptRunner.h"
#include "support/FakeDisplaySource.h"
#include "support/FakeForegroundSource.h"
#include "support/FakeKeyring.h"
#include "support/FakeProcessLauncher.h"
#include "support/FakeRunningApplication.h"
#include "support/FakeScreenCaptureAccess.h"
#include "support/FakeSecretStore.h"
#include "support/FakeSystemSettingsOpener.h"
#include "support/FakeUserDefaults.h"
#include "support/FakeWorkspaceEvents.h"
#include "support/TestHome.h"

namespace ostrel {

/// A desktop of fakes that fail on what the test does not expect, and a home of its own. A fixture derives from it.
class FakePlatform
{
protected:
    TestHome m_home;
    SerialQueue m_samples{QStringLiteral("test.samples")};
    FakeDisplaySource m_displays{m_samples};
    FakeScreenCaptureAccess m_screen;
    FakeForegroundSource m_foreground;
    FakeAccessibilityAccess m_contextAccessibility;
    FakeAccessibilityAccess m_accessibility;
    FakeAccessibilityTree m_tree;
    FakeBrowserScriptRunner m_browserScripts;
    FakeWorkspaceEvents m_workspace;
    FakeSecretStore m_secrets;
    FakeKeyring m_keyring;
    FakeUserDefaults m_defaults;
    FakeSystemSettingsOpener m_opener;
    FakeAutostart m_autostart;
    NoDialogs m_dialogs;
    FakeProcessLauncher m_launcher;
    FakeRunningApplication m_recorder;
    FakeRemoteControl m_remoteControl;
    const Platform m_platform{.displays = m_displays,
                              .screenCaptureAccess = m_screen,
                              .foreground = m_foreground,
                              .contextAccessibility = m_contextAccessibility,
                              .permissionAccessibility = m_accessibility,
                              .accessibilityTree = m_tree,
                              .browserScripts = m_browserScripts,
                              .excludesWindow = [](const WindowIdentity &) { return false; },
                              .workspace = m_workspace,
                              .secrets = m_secrets,
                              .keyring = m_keyring,
                              .userDefaults = m_defaults,
                              .settingsOpener = m_opener,
                              .autostart = m_autostart,
                              .dialogs = m_dialogs,
                              .processes = m_launcher,
                              .runningApplication = m_recorder,
                              .remoteControl = m_remoteControl,
                              .desktop = {}};
};

} // namespace ostrel
