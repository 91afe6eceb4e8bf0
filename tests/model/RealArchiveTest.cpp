#include "RealObserverFixture.h"

#include <QDirIterator>

using namespace ostrel;

namespace {

/// The archive in a folder of the test's home, by the real observer.
class RealArchive : public RealObserver
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(QDir().mkpath(m_home.path(QStringLiteral("nas"))));
        ASSERT_TRUE(writeFileAtomically(m_home.path(QStringLiteral(".ostrel/observer/archive/target.json")),
                                        R"({"kind": "folder", "lossless": true, "path": ")" +
                                            m_home.path(QStringLiteral("nas")).toUtf8() + "\"}")
                        .has_value());
        RealObserver::SetUp();
        awaitObserver();
    }
    void awaitIdle()
    {
        ASSERT_TRUE(pumpUntil([this] {
            settle();
            return !m_model->archiveBusy();
        }));
    }
    void prepare()
    {
        m_model->beginArchiveWizard();
        m_model->archiveWizardContinue();
        awaitIdle();
        ASSERT_EQ(m_model->archiveWizardStep(), ArchiveWizardStep::saveKey)
            << m_model->archiveMessage().value_or(QString()).toStdString();
    }
    void turnOn()
    {
        prepare();
        m_key = m_model->archiveRecoveryKey().value();
        m_model->archiveWizardNext();
        m_model->setArchiveKeySavedConfirmed(true);
        m_model->archiveWizardTurnOn();
        awaitIdle();
        ASSERT_TRUE(m_model->settings().archiveEnabled) << m_model->archiveMessage().value_or(QString()).toStdString();
    }
    void learnPlace()
    {
        m_model->refreshArchiveTarget();
        ASSERT_TRUE(pumpUntil([this] {
            settle();
            return m_model->archiveTarget().has_value();
        }));
    }
    void awaitPlace()
    {
        ASSERT_TRUE(pumpUntil([this] {
            settle();
            return !m_model->archiveTargetBusy();
        }));
    }
    void choose(const ArchiveTarget &draft)
    {
        m_model->setArchiveTargetDraft(draft);
        m_model->saveArchiveTarget();
        awaitPlace();
    }
    bool homeHolds(const QString &text) const
    {
        QDirIterator files(m_home.path(), QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
        while (files.hasNext()) {
            if (readFile(files.next()).value_or(QByteArray()).contains(text.toUtf8()))
                return true;
        }
        return false;
    }

    QString m_key;
};

TEST_F(RealArchive, wizard_turnsItOnAndTheKeyIsInNoFile)
{
    turnOn();
    EXPECT_TRUE(m_key.startsWith(QStringLiteral("ostrel-vault_")));
    EXPECT_NE(m_model->settings().archiveVaultId, QString());
    EXPECT_EQ(m_model->archiveWizardStep(), std::nullopt);
    EXPECT_FALSE(homeHolds(m_key));
}

TEST_F(RealArchive, cancelledWizard_preparesAnotherKeyTheNextTime)
{
    prepare();
    const auto first = m_model->archiveRecoveryKey();
    m_model->cancelArchiveWizard();
    prepare();
    EXPECT_NE(m_model->archiveRecoveryKey(), first);
    EXPECT_FALSE(m_model->settings().archiveEnabled);
}

TEST_F(RealArchive, pauseAndResume_keepTheVault)
{
    turnOn();
    const QString vault = m_model->settings().archiveVaultId;
    m_model->disableArchive();
    awaitIdle();
    EXPECT_EQ(m_model->archiveMessage(), QStringLiteral("Archive uploads paused."));
    EXPECT_FALSE(m_model->settings().archiveEnabled);
    m_model->resumeArchive();
    awaitIdle();
    EXPECT_TRUE(m_model->settings().archiveEnabled);
    EXPECT_EQ(m_model->settings().archiveVaultId, vault);
}

TEST_F(RealArchive, mistypedKey_isRefusedInTheObserversWords)
{
    turnOn();
    QString mistyped = m_key;
    mistyped.back() = mistyped.back() == u'Q' ? u'P' : u'Q'; // in lower case it would be the same key
    for (int i = 0; i < 2; ++i) {
        m_model->recoverArchive(mistyped);
        awaitIdle();
        EXPECT_TRUE(m_model->archiveMessageIsError());
        EXPECT_NE(m_model->archiveMessage(), faultError(Fault::BadServerResponse).localizedDescription);
    }
    m_model->recoverArchive(QStringLiteral(" %1\n").arg(m_key));
    awaitIdle();
    EXPECT_EQ(m_model->archiveMessage(), QStringLiteral("Archive vault recovered."));
}

TEST_F(RealArchive, place_isToldAndChosenAndItsSecretIsNotToldAgain)
{
    learnPlace();
    EXPECT_EQ(m_model->archiveTarget()->path, m_home.path(QStringLiteral("nas")));
    m_model->openArchiveTargetCard();
    ArchiveTarget bucket = *m_model->archiveTargetDraft();
    bucket.kind = ArchiveTarget::Kind::S3;
    bucket.endpoint = QStringLiteral("https://s3.example.org");
    bucket.bucket = QStringLiteral("footage");
    bucket.accessKeyId = QStringLiteral("AKID");
    bucket.secretAccessKey = QStringLiteral("wJalrXUtnFEMI");
    choose(bucket);
    EXPECT_EQ(m_model->archiveTargetDraft(), std::nullopt)
        << m_model->archiveMessage().value_or(QString()).toStdString();
    EXPECT_EQ(m_model->archiveTarget()->secretAccessKey, ArchiveTarget::redacted);

    m_model->openArchiveTargetCard();
    bucket.secretAccessKey.clear();
    bucket.prefix = QStringLiteral("mine");
    choose(bucket);
    EXPECT_EQ(m_model->archiveTarget()->prefix, QStringLiteral("mine"));
    EXPECT_THAT(readFile(m_home.path(QStringLiteral(".ostrel/observer/archive/target.json"))).value().toStdString(),
                testing::HasSubstr("wJalrXUtnFEMI"))
        << "the one that was kept";
}

TEST_F(RealArchive, placeThatCannotBeUsedWhileItIsOn_isRefusedInTheObserversWords)
{
    turnOn();
    learnPlace();
    m_model->openArchiveTargetCard();
    ArchiveTarget folder = *m_model->archiveTargetDraft();
    folder.path = m_home.path(QStringLiteral("not-there"));
    m_dialogs.expectDialog();
    m_model->setArchiveTargetDraft(folder);
    m_model->saveArchiveTarget();
    settle();
    m_dialogs.answer(DialogResponse::firstButton);
    awaitPlace();
    EXPECT_TRUE(m_model->archiveMessageIsError());
    EXPECT_THAT(m_model->archiveMessage()->toStdString(), testing::HasSubstr(folder.path.toStdString()));
    EXPECT_EQ(m_model->archiveTarget()->path, m_home.path(QStringLiteral("nas")));
}

TEST_F(RealArchive, exportOfNothing_completes)
{
    turnOn();
    m_model->openArchiveExportCard();
    ASSERT_TRUE(pumpUntil([this] {
        settle();
        return m_model->archiveExportEstimate().has_value();
    }));
    EXPECT_EQ(m_model->archiveExportEstimateText(), QStringLiteral("0 clips, 0 bytes"));
    m_model->startArchiveExport();
    ASSERT_TRUE(pumpUntil([this] {
        settle();
        m_clock.advance(std::chrono::milliseconds(100));
        return m_model->archiveExportCard() == ArchiveExportCard::finished;
    })) << m_model->archiveMessage().value_or(QString()).toStdString();
    EXPECT_EQ(m_model->archiveExportStatus()->state, QStringLiteral("done"));
}

} // namespace
