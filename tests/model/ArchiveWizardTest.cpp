#include "ArchiveAreaFixture.h"

#include <QDir>

#include <sys/stat.h>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

class ArchiveWizard : public ArchiveAreaFixture
{};

TEST_F(ArchiveWizard, wizard_fromIntroToTurnedOn_mirrorsTheStatusAndForgetsTheKey)
{
    confirm();
    const auto held = m_transport.expectHeld(postEnable);
    m_archive.archiveWizardTurnOn();
    EXPECT_TRUE(m_archive.archiveBusy());
    held->release(archive(true));
    settle();
    EXPECT_FALSE(m_archive.archiveBusy());
    expectClosed();
    EXPECT_TRUE(m_state.settings().archiveEnabled);
    EXPECT_EQ(m_state.settings().archiveVaultId, QStringLiteral("vault-1"));
    EXPECT_EQ(m_state.draftSettings(), m_state.settings());
    EXPECT_EQ(requests(), QStringList({postPrepare, postEnable}));
    EXPECT_FALSE(QFile::exists(m_home.path(QStringLiteral(".ostrel/settings.json")))) << "the observer keeps it";
}

TEST_F(ArchiveWizard, continueTwiceQuickly_sendsOnePrepare)
{
    const auto held = m_transport.expectHeld(postPrepare);
    m_archive.beginArchiveWizard();
    m_archive.archiveWizardContinue();
    m_archive.archiveWizardContinue();
    settle();
    m_archive.archiveWizardContinue();
    settle();
    EXPECT_TRUE(m_archive.archiveBusy());
    held->release(archive(false, "vault-1", recoveryKey));
    settle();
    EXPECT_EQ(requests(), QStringList(postPrepare));
    EXPECT_EQ(m_archive.archiveWizardStep(), ArchiveWizardStep::saveKey);
}

TEST_F(ArchiveWizard, continueAnywhereButOnTheIntro_doesNothing)
{
    m_archive.archiveWizardContinue();
    prepare();
    m_archive.archiveWizardContinue();
    m_archive.archiveWizardNext();
    m_archive.archiveWizardContinue();
    settle();
    EXPECT_EQ(requests(), QStringList(postPrepare)) << "the one that prepared";
}

TEST_F(ArchiveWizard, turnOnWithTheBoxUnticked_doesNothing)
{
    confirm();
    m_archive.setArchiveKeySavedConfirmed(false);
    m_archive.archiveWizardTurnOn();
    settle();
    EXPECT_EQ(requests(), QStringList(postPrepare));
    EXPECT_EQ(m_archive.archiveWizardStep(), ArchiveWizardStep::confirm);
    EXPECT_FALSE(m_archive.archiveBusy());
}

TEST_F(ArchiveWizard, turnOnBeforeTheLastPage_doesNothing)
{
    prepare();
    m_archive.setArchiveKeySavedConfirmed(true);
    m_archive.archiveWizardTurnOn();
    settle();
    EXPECT_EQ(requests(), QStringList(postPrepare));
}

TEST_F(ArchiveWizard, cancelAfterPrepare_forgetsTheKeyAndTheNextWizardPreparesAgain)
{
    confirm();
    m_archive.cancelArchiveWizard();
    expectClosed();
    m_archive.copyArchiveRecoveryKey();
    m_archive.downloadArchiveRecoveryKey();
    prepare();
    EXPECT_FALSE(m_archive.archiveKeySavedConfirmed());
    EXPECT_EQ(requests(), QStringList({postPrepare, postPrepare}));
}

TEST_F(ArchiveWizard, cancelWhilePreparing_staysClosedWhenTheKeyComes)
{
    const auto held = m_transport.expectHeld(postPrepare);
    m_archive.beginArchiveWizard();
    m_archive.archiveWizardContinue();
    settle();
    m_archive.cancelArchiveWizard();
    m_archive.beginArchiveWizard();
    expectClosed();
    held->release(archive(false, "vault-1", recoveryKey));
    settle();
    expectClosed();
    EXPECT_FALSE(m_archive.archiveBusy());
}

TEST_F(ArchiveWizard, cancelWhileTurningOn_isClosedAndStillMirrorsWhatBecameOfIt)
{
    confirm();
    const auto held = m_transport.expectHeld(postEnable);
    m_archive.archiveWizardTurnOn();
    settle();
    m_archive.cancelArchiveWizard();
    held->release(archive(true));
    settle();
    expectClosed();
    EXPECT_TRUE(m_state.settings().archiveEnabled);
}

TEST_F(ArchiveWizard, nextAndBack_moveBetweenKeyAndConfirmationOnly)
{
    m_archive.archiveWizardNext();
    EXPECT_EQ(m_archive.archiveWizardStep(), std::nullopt);
    m_archive.beginArchiveWizard();
    m_archive.archiveWizardNext();
    m_archive.archiveWizardBack();
    EXPECT_EQ(m_archive.archiveWizardStep(), ArchiveWizardStep::intro);
    prepare();
    m_archive.archiveWizardBack();
    EXPECT_EQ(m_archive.archiveWizardStep(), ArchiveWizardStep::saveKey);
    m_archive.archiveWizardNext();
    EXPECT_EQ(m_archive.archiveWizardStep(), ArchiveWizardStep::confirm);
    m_archive.archiveWizardBack();
    EXPECT_EQ(m_archive.archiveWizardStep(), ArchiveWizardStep::saveKey);
    EXPECT_EQ(m_archive.archiveRecoveryKey(), recoveryKey);
}

TEST_F(ArchiveWizard, prepareWithoutAKey_isAnErrorAndStaysOnTheIntro)
{
    m_archive.beginArchiveWizard();
    for (const std::optional<QString> &none : {std::optional<QString>(), std::optional(QString())}) {
        m_transport.expect(postPrepare, archive(false, "vault-1", none));
        m_archive.archiveWizardContinue();
        settle();
        EXPECT_EQ(m_archive.archiveWizardStep(), ArchiveWizardStep::intro);
        expectError(QStringLiteral("The observer gave no recovery key for the archive."));
    }
}

TEST_F(ArchiveWizard, failedRequest_leavesTheWizardOnItsPageWithTheKey)
{
    confirm();
    m_transport.expect(postEnable, FakeHttpTransport::failure(Fault::TimedOut));
    m_archive.archiveWizardTurnOn();
    settle();
    EXPECT_EQ(m_archive.archiveWizardStep(), ArchiveWizardStep::confirm);
    EXPECT_EQ(m_archive.archiveRecoveryKey(), recoveryKey);
    EXPECT_TRUE(m_archive.archiveKeySavedConfirmed());
    EXPECT_FALSE(m_archive.archiveBusy());
    EXPECT_FALSE(m_state.settings().archiveEnabled);
    expectError(words(Fault::TimedOut));
}

TEST_F(ArchiveWizard, copy_putsTheKeyOnTheClipboardAsASecret)
{
    prepare();
    m_dialogs.expectPasteboard();
    m_archive.copyArchiveRecoveryKey();
    EXPECT_EQ(m_dialogs.pasteboard().constLast(), std::pair(recoveryKey, PasteboardText::Secret));
    expectMessage("Recovery key copied.");
}

TEST_F(ArchiveWizard, download_writesTheKeyForTheUserAloneAndDoesNotTickTheBox)
{
    prepare();
    m_dialogs.expectDialog();
    m_archive.downloadArchiveRecoveryKey();
    m_archive.downloadArchiveRecoveryKey(); // a second press shows no second panel
    settle();
    EXPECT_EQ(m_dialogs.savePanel().proposedFileName, QStringLiteral("Ostrel Cloud Archive Recovery Key.txt"));
    EXPECT_TRUE(m_modals.nativeModalActive());
    const QString path = m_home.path(QStringLiteral("keys/key.txt"));
    m_dialogs.choose(path);
    settle();
    EXPECT_EQ(readFile(path), recoveryKey.toUtf8());
    struct stat info = {};
    ASSERT_EQ(::stat(qPrintable(path), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600U);
    EXPECT_EQ(
        QDir(m_home.path(QStringLiteral("keys"))).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
        QStringList(QStringLiteral("key.txt")))
        << "no temporary file stays";
    expectMessage("Recovery key saved.");
    EXPECT_FALSE(m_archive.archiveKeySavedConfirmed());
}

TEST_F(ArchiveWizard, downloadPanelThatIsLeft_changesNothing)
{
    prepare();
    m_dialogs.expectDialog();
    m_archive.downloadArchiveRecoveryKey();
    settle();
    m_dialogs.leave();
    settle();
    EXPECT_EQ(m_state.archiveMessage(), std::nullopt);
    EXPECT_EQ(m_archive.archiveRecoveryKey(), recoveryKey);
}

TEST_F(ArchiveWizard, keyFileThatCannotBeWritten_isItsErrorAndTheKeyStays)
{
    prepare();
    download(m_home.path()); // a folder
    expectError(faultError(Fault::IsDirectory, m_home.path()).localizedDescription);
    EXPECT_EQ(m_archive.archiveRecoveryKey(), recoveryKey);
}

TEST_F(ArchiveWizard, wizardCancelledBehindTheSavePanel_writesNothing)
{
    prepare();
    m_dialogs.expectDialog();
    m_archive.downloadArchiveRecoveryKey();
    settle();
    m_archive.cancelArchiveWizard();
    m_dialogs.choose(m_home.path(QStringLiteral("key.txt")));
    settle();
    EXPECT_FALSE(QFile::exists(m_home.path(QStringLiteral("key.txt"))));
    expectClosed();
}

TEST_F(ArchiveWizard, diskThatHangs_holdsNoEventUp)
{
    prepare();
    holdDisk();
    const QString path = m_home.path(QStringLiteral("key.txt"));
    download(path);
    EXPECT_TRUE(handlesEvents());
    EXPECT_EQ(m_state.archiveMessage(), std::nullopt) << "it is not saved yet";
    m_archive.archiveWizardNext();
    EXPECT_EQ(m_archive.archiveWizardStep(), ArchiveWizardStep::confirm);
    releaseDisk();
    EXPECT_EQ(readFile(path), recoveryKey.toUtf8());
    expectMessage("Recovery key saved.");
}

TEST_F(ArchiveWizard, observerThatHangs_holdsNoEventUpAndTheWizardCanBeCancelled)
{
    const auto held = m_transport.expectHeld(getStatus);
    m_archive.beginArchiveWizard();
    m_archive.archiveWizardContinue();
    EXPECT_TRUE(handlesEvents());
    m_archive.cancelArchiveWizard();
    expectClosed();
    held->release(FakeHttpTransport::failure(Fault::TimedOut));
    m_transport.expect(postPrepare, archive(false, "vault-1", recoveryKey));
    advance(250ms);
    expectClosed();
}

} // namespace
