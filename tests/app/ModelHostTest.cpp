#include "app/ModelHost.h"

#include "app/NoDialogs.h"
#include "base/Files.h"
#include "base/TaskSlot.h"
#include "observer/SettingsStore.h"
#include "observer/TokenStore.h"
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
#include "support/FreePort.h"
#include "support/Printers.h"
#include "support/RunTask.h"
#include "support/ScopedVariable.h"
#include "support/TestHome.h"

#include <QTimer>

#include <gtest/gtest.h>

#include <memory>

namespace ostrel {
namespace {

/// The model's host over a desktop of the test's own. The observer's process is not started for real.
class ModelHosting : public testing::Test
{
protected:
    ModelHosting()
    {
        m_screen.onPreflight = [] { return true; };
        m_accessibility.onIsTrusted = [] { return true; };
        EXPECT_TRUE(writeFileAtomically(m_home.path(QStringLiteral("observer/dist/observer.mjs")), {}).has_value());
        const QByteArray port = QByteArray::number(freePort());
        EXPECT_TRUE(writeFileAtomically(SettingsStore::primaryFile(),
                                        R"({"outputDirectory": "~/journal", "localPort": )" + port + "}")
                        .has_value());
        m_host = std::make_unique<ModelHost>(m_platform, [] {});
    }

    void start()
    {
        m_starting.start([this](std::stop_token stop) { return m_host->start(stop); });
    }
    bool secretsAreAsked() const { return !m_secrets.calls().isEmpty(); }

    TestHome m_home;
    ScopedVariable m_root{"MORAVEL_REPO_ROOT", m_home.path(QStringLiteral("observer")).toLocal8Bit()};
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
    FakeRunningApplication m_otherProgram;
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
                              .runningApplication = m_otherProgram,
                              .remoteControl = m_remoteControl,
                              .desktop = {}};
    std::unique_ptr<ModelHost> m_host;
    TaskSlot m_starting;
};

TEST_F(ModelHosting, secretsThatHang_eventsAreHandledMeanwhile)
{
    m_launcher.allowLaunches();
    m_secrets.block();
    start();
    ASSERT_TRUE(pumpUntil([this] { return secretsAreAsked(); }));

    bool handled = false;
    QTimer::singleShot(0, [&handled] { handled = true; });
    ASSERT_TRUE(pumpUntil([&handled] { return handled; }));
    EXPECT_FALSE(m_host->isStarted());
    EXPECT_TRUE(m_starting.isRunning());

    m_secrets.unblock();
    EXPECT_TRUE(pumpUntil([this] { return m_host->isStarted(); }));
}

TEST_F(ModelHosting, startedModel_hasTheStoredSettingsAndSecrets)
{
    m_launcher.expectLaunch();
    m_secrets.put(vertexApiKeyService, QStringLiteral("key"));
    m_secrets.put(localApiTokenService, QStringLiteral("token"));
    start();
    ASSERT_TRUE(pumpUntil([this] { return m_host->isStarted(); }));
    EXPECT_EQ(m_host->model().settings().outputDirectory, QStringLiteral("~/journal"));
    EXPECT_EQ(m_host->model().settings().byokGoogleVertexApiKey, QStringLiteral("key"));
    ASSERT_TRUE(pumpUntil([this] { return m_launcher.children().size() == 1; }));
    EXPECT_TRUE(m_launcher.children().first()->description.workingDirectory.endsWith(QStringLiteral("/observer")));
    EXPECT_TRUE(m_remoteControl.isOpen());
    m_host.reset();
    EXPECT_FALSE(m_remoteControl.isOpen());
}

TEST_F(ModelHosting, stoppedWhileSecretsHang_buildsNoModel)
{
    m_secrets.block();
    start();
    ASSERT_TRUE(pumpUntil([this] { return secretsAreAsked(); }));
    m_starting.cancel();
    EXPECT_FALSE(m_starting.isRunning());
    m_secrets.unblock();
    m_host.reset(); // waits for what is being read
    EXPECT_EQ(m_launcher.children().size(), 0);
    EXPECT_FALSE(m_remoteControl.isOpen());
}

} // namespace
} // namespace ostrel
