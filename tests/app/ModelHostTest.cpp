#include "app/ModelHost.h"

#include "FakePlatform.h"
#include "base/Files.h"
#include "base/TaskSlot.h"
#include "observer/SettingsStore.h"
#include "observer/TokenStore.h"
#include "support/FreePort.h"
#include "support/Printers.h"
#include "support/RunTask.h"
#include "support/ScopedVariable.h"

#include <QTimer>

#include <gtest/gtest.h>

#include <memory>

namespace ostrel {
namespace {

/// The model's host over a desktop of the test's own. The observer's process is not started for real.
class ModelHosting : public testing::Test, protected FakePlatform
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

    ScopedVariable m_root{"MORAVEL_REPO_ROOT", m_home.path(QStringLiteral("observer")).toLocal8Bit()};
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
    EXPECT_FALSE(m_launcher.descriptions().first().environment.contains(QStringLiteral("OSTREL_HOLD_ANALYSIS")));
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
