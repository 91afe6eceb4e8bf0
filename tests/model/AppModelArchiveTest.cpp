#include "ModelFixture.h"
#include "base/Files.h"

using namespace ostrel;

namespace {

const QString recoveryKey = QStringLiteral("ostrel-vault_1qqqsyq5xzvm");
const ArchiveStatus prepared{
    .archiveEnabled = false, .archiveVaultId = {}, .hasRecoveryKey = true, .recoveryKey = recoveryKey};
const ArchiveStatus turnedOn{
    .archiveEnabled = true, .archiveVaultId = QStringLiteral("vault-1"), .hasRecoveryKey = true, .recoveryKey = {}};

/// The archive as the whole model has it.
class ModelArchive : public ModelFixture
{
protected:
    ModelArchive()
    {
        launch();
        QObject::connect(m_model.get(), &AppModel::popoverOverlayActiveChanged,
                         [this] { m_overlay.append(m_model->popoverOverlayActive()); });
    }
    void prepare()
    {
        m_observer.expect(QStringLiteral("POST /api/archive/prepare"), FakeHttpTransport::answer(prepared.toJson()));
        m_model->beginArchiveWizard();
        m_model->archiveWizardContinue();
        settle();
        ASSERT_EQ(m_model->archiveRecoveryKey(), recoveryKey);
    }

    QList<bool> m_overlay;
    TaskScope m_tasks;
};

TEST_F(ModelArchive, openWizard_isAnOverlayUntilItCloses)
{
    m_model->beginArchiveWizard();
    EXPECT_TRUE(m_model->popoverOverlayActive());
    m_model->cancelArchiveWizard();
    EXPECT_FALSE(m_model->popoverOverlayActive());
    EXPECT_EQ(m_overlay, QList<bool>({true, false}));
}

TEST_F(ModelArchive, openExportCard_isAnOverlayUntilItCloses)
{
    m_observer.expect(QStringLiteral("GET /api/archive/status"), FakeHttpTransport::answer(turnedOn.toJson()));
    m_model->refreshArchiveStatus();
    settle();
    m_observer.expect(QStringLiteral("POST /api/archive/export/estimate"), FakeHttpTransport::answer({}, 409));
    m_observer.expect(QStringLiteral("GET /api/archive/export/status"), FakeHttpTransport::answer({}, 409));
    m_model->openArchiveExportCard();
    settle();
    EXPECT_EQ(m_model->archiveExportCard(), ArchiveExportCard::configure);
    EXPECT_TRUE(m_model->popoverOverlayActive());
    m_model->closeArchiveExportCard();
    EXPECT_FALSE(m_model->popoverOverlayActive());
}

TEST_F(ModelArchive, settingsSavedBesideTheWizard_holdNoKey)
{
    prepare();
    m_observer.expect(QStringLiteral("PUT /api/settings"), FakeHttpTransport::answer(m_model->settings().toJson()));
    // The scope keeps the closure. NOLINTNEXTLINE(cppcoreguidelines-avoid-capturing-lambda-coroutines)
    m_tasks.spawn([this](std::stop_token) -> Task<> {
        ObserverSettings next = m_model->draftSettings();
        next.model = QStringLiteral("next");
        co_await m_model->saveSettings(next);
    });
    settle();
    EXPECT_EQ(m_model->settings().model, QStringLiteral("next"));
    EXPECT_FALSE(readFile(SettingsStore::primaryFile()).value().contains(recoveryKey.toUtf8()));
    for (const QString &call : m_secrets.calls())
        EXPECT_FALSE(call.contains(recoveryKey));
}

TEST_F(ModelArchive, wizardToItsEnd_mirrorsTheArchiveBesideARecording)
{
    record();
    prepare();
    m_model->archiveWizardNext();
    m_model->setArchiveKeySavedConfirmed(true);
    m_observer.expect(QStringLiteral("POST /api/archive/enable"), FakeHttpTransport::answer(turnedOn.toJson()));
    m_model->archiveWizardTurnOn();
    settle();
    EXPECT_TRUE(m_model->settings().archiveEnabled);
    EXPECT_EQ(m_model->archiveRecoveryKey(), std::nullopt);
    EXPECT_TRUE(m_model->isRecording()) << "it goes on";
    EXPECT_EQ(m_model->archiveMessage(), std::nullopt);
}

} // namespace
