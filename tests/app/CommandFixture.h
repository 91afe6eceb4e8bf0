#pragma once

#include "app/CommandLine.h"
#include "app/NoDialogs.h"
#include "app/Platform.h"
#include "base/SerialQueue.h"
#include "support/FakeAccessibilityAccess.h"
#include "support/FakeAccessibilityTree.h"
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

#include <QByteArray>
#include <QStringList>

#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

namespace ostrel {

/// Standard input that holds some bytes, until the end of the scope.
class ScopedInput
{
public:
    explicit ScopedInput(const QByteArray &bytes) : m_before(::dup(STDIN_FILENO))
    {
        const int file = ::memfd_create("input", MFD_CLOEXEC);
        const bool written = ::write(file, bytes.constData(), size_t(bytes.size())) == bytes.size();
        EXPECT_TRUE(written && ::lseek(file, 0, SEEK_SET) == 0 && ::dup2(file, STDIN_FILENO) >= 0);
        ::close(file);
    }
    ScopedInput(const ScopedInput &) = delete;
    ScopedInput &operator=(const ScopedInput &) = delete;
    ~ScopedInput()
    {
        ::dup2(m_before, STDIN_FILENO);
        ::close(m_before);
    }

private:
    int m_before;
};

/// The command line in this process, in a home of its own, over fakes that fail on what the test does not expect.
class CommandFixture : public testing::Test
{
protected:
    CommandResult run(const QStringList &words)
    {
        return runCommandLine(QStringList(QStringLiteral("ostrel")) + words, m_platform);
    }
    CommandResult run(const QStringList &words, const QByteArray &input)
    {
        const ScopedInput standardInput(input);
        return run(words);
    }

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
                              .dialogs = m_dialogs,
                              .processes = m_launcher,
                              .runningApplication = m_recorder,
                              .remoteControl = m_remoteControl,
                              .desktop = {}};
};

} // namespace ostrel
