#include "RealObserverFixture.h"

#include "model/InferenceSettings.h"

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

const QString putSettings = QStringLiteral("PUT /api/settings");

/// Settings that are saved while the real observer runs.
class RealObserverSettings : public RealObserver
{
protected:
    void save(const ObserverSettings &next)
    {
        m_saved.reset();
        // The scope keeps the closure. NOLINTNEXTLINE(cppcoreguidelines-avoid-capturing-lambda-coroutines)
        m_tasks.spawn([this, next](std::stop_token) -> Task<> { m_saved = co_await m_model->saveSettings(next); });
        ASSERT_TRUE(pumpUntil([this] { return m_saved.has_value(); }));
        EXPECT_EQ(m_saved, true);
    }
    /// Lets the first polls be answered.
    void meetTheObserver()
    {
        awaitObserver();
        simulate(3s);
        ASSERT_TRUE(m_model->status());
    }
    static ObserverSettings onDisk()
    {
        return ObserverSettings::fromJson(readFile(SettingsStore::primaryFile()).value_or("no file")).value();
    }

    std::optional<bool> m_saved;
    TaskScope m_tasks;
};

TEST_F(RealObserverSettings, save_isTakenOverByTheObserverAndRefreshesItsStatus)
{
    meetTheObserver();
    const int refreshes = m_transport.answered(getStatus);
    m_settings.outputDirectory = m_home.path(QStringLiteral("elsewhere"));
    save(m_settings);
    arrive();
    EXPECT_EQ(m_transport.answered(putSettings), 1);
    EXPECT_EQ(m_transport.answered(getStatus), refreshes + 1) << "no poll has come between: no time has passed";
    EXPECT_EQ(onDisk().outputDirectory, m_settings.outputDirectory);
    EXPECT_EQ(m_launcher.processes().size(), 1) << "the same observer";

    record(QStringLiteral("Chapter one"));
    simulate(6s);
    m_model->stopRecording();
    awaitEnd();
    EXPECT_EQ(lineCount(QStringLiteral("Chapter one")), 1) << "in the new folder";
}

TEST_F(RealObserverSettings, portAlone_restartsTheObserverThereAndIsNotPosted)
{
    meetTheObserver();
    const pid_t former = m_launcher.processes().constLast();
    m_settings.localPort = freePort();
    save(m_settings);
    EXPECT_TRUE(pumpUntil([former] { return !isAlive(former); }));
    ASSERT_TRUE(pumpUntil([this] { return m_launcher.processes().size() == 2; }));
    awaitObserver();
    simulate(3s);
    EXPECT_EQ(m_model->helperError(), std::nullopt);
    EXPECT_TRUE(m_model->status());
    EXPECT_EQ(m_transport.answered(putSettings), 0);
    EXPECT_EQ(onDisk().localPort, m_settings.localPort);
}

TEST_F(RealObserverSettings, observerThatHangs_saveIsDoneAllTheSame)
{
    meetTheObserver();
    freezeObserver();
    m_settings.model = QStringLiteral("next");
    save(m_settings);
    EXPECT_EQ(onDisk().model, QStringLiteral("next"));
    EXPECT_EQ(m_model->settings(), m_settings);
    awaitDelivery(putSettings);
    thawObserver();
    arrive();
    EXPECT_EQ(m_transport.answered(putSettings), 1);
}

TEST_F(RealObserverSettings, byokKey_reachesTheObserverAndNoFile)
{
    meetTheObserver();
    m_dialogs.expectDialogs(2);
    m_model->addByokInferenceKey();
    m_dialogs.answer(DialogResponse::secondButton);
    m_dialogs.answer(DialogResponse::firstButton, {QStringLiteral("the-users-own-key"), QStringLiteral("project")});
    ASSERT_TRUE(pumpUntil([this] { return m_transport.answered(putSettings) == 1; }));
    EXPECT_EQ(m_model->byokInferenceStatusText(), QStringLiteral("BYOK Vertex - API key"));
    EXPECT_EQ(m_secrets.item(vertexApiKeyService), QStringLiteral("the-users-own-key"));
    EXPECT_EQ(onDisk().inferenceProvider, InferenceProvider::googleVertex);
    EXPECT_FALSE(readFile(SettingsStore::primaryFile()).value().contains("the-users-own-key"));

    m_dialogs.expectDialog();
    m_model->useOstrelInference();
    m_dialogs.answer(DialogResponse::firstButton);
    ASSERT_TRUE(pumpUntil([this] { return m_transport.answered(putSettings) == 2; }));
    EXPECT_EQ(m_secrets.item(vertexApiKeyService), std::nullopt);
    EXPECT_EQ(onDisk().inferenceProvider, InferenceProvider::ostrel);
}

} // namespace
