#include "ArchiveAreaFixture.h"
#include "support/LogRecorder.h"

#include <QDirIterator>

using namespace ostrel;
using namespace std::chrono_literals;
using testing::HasSubstr;

namespace {

class Archive : public ArchiveAreaFixture
{};

TEST_F(Archive, everyActionWhileBusy_isRefusedSilently)
{
    confirm();
    const auto held = m_transport.expectHeld(postEnable);
    m_archive.archiveWizardTurnOn();
    settle();
    m_archive.archiveWizardTurnOn();
    m_archive.archiveWizardBack();
    m_archive.beginArchiveWizard();
    m_archive.disableArchive();
    m_archive.resumeArchive();
    m_archive.recoverArchiveWithKey();
    m_archive.recoverArchive(QStringLiteral(" "));
    m_archive.recoverArchive(recoveryKey);
    settle();
    EXPECT_EQ(m_state.archiveMessage(), std::nullopt);
    EXPECT_EQ(m_archive.archiveWizardStep(), ArchiveWizardStep::confirm);
    EXPECT_EQ(requests(), QStringList({postPrepare, postEnable}));
    held->release(archive(true));
    settle();
}

TEST_F(Archive, refusalWithAReason_showsTheObserversWords)
{
    const auto reason = QStringLiteral("The recovery key is mistyped.");
    m_transport.expect(getStatus, complaining({}));
    m_transport.expect(postRecover, refused());
    m_transport.always(getStatus, complaining(reason));
    m_archive.recoverArchive(recoveryKey);
    settle();
    expectError(reason);
    m_transport.expect(postRecover, refused());
    m_archive.recoverArchive(recoveryKey);
    settle();
    expectError(reason); // the same mistake once more
}

TEST_F(Archive, refusalWithoutAReason_isNotBlamedOnAnOlderComplaint)
{
    m_transport.always(getStatus, complaining(QStringLiteral("The disk is full.")));
    m_transport.expect(postDisable, refused());
    m_archive.disableArchive();
    settle();
    expectError(words(Fault::BadServerResponse));
}

TEST_F(Archive, observerOutOfReach_isGivenUpAfterThirtyAttempts)
{
    m_transport.always(getStatus, FakeHttpTransport::failure(Fault::ConnectionRefused));
    m_archive.beginArchiveWizard();
    m_archive.archiveWizardContinue();
    settle();
    advance(7249ms);
    EXPECT_TRUE(m_archive.archiveBusy());
    EXPECT_EQ(m_transport.count(getStatus), 29);
    advance(1ms);
    EXPECT_EQ(m_transport.count(getStatus), 30);
    EXPECT_FALSE(m_archive.archiveBusy());
    EXPECT_EQ(m_archive.archiveWizardStep(), ArchiveWizardStep::intro);
    expectError(words(Fault::ConnectionRefused));
    EXPECT_EQ(requests(), QStringList());
}

TEST_F(Archive, observerThatComesUpLate_isAskedThenAndItsStatusIsTheModels)
{
    for (int i = 0; i < 3; ++i)
        m_transport.expect(getStatus, FakeHttpTransport::failure(Fault::ConnectionRefused));
    ObserverStatus status;
    status.chunkIndex = 7;
    m_transport.always(getStatus, FakeHttpTransport::answer(status.toJson()));
    m_transport.expect(postDisable, archive(false));
    m_archive.disableArchive();
    settle();
    advance(750ms);
    EXPECT_EQ(m_state.status(), status);
    EXPECT_EQ(m_launcher.children().size(), 1);
    expectMessage("Archive uploads paused.");
}

TEST_F(Archive, otherHelperErrors_stayOnShow)
{
    m_state.setHelperError(QStringLiteral("Screen Recording permission needed in System Settings"));
    haveVault(true);
    EXPECT_EQ(m_state.helperError(), QStringLiteral("Screen Recording permission needed in System Settings"));
}

TEST_F(Archive, pause_saysSoAndHoldsNoKeyAndKeepsTheVault)
{
    prepare();
    m_transport.expect(postDisable, archive(false));
    m_archive.disableArchive();
    settle();
    expectMessage("Archive uploads paused.");
    EXPECT_EQ(m_archive.archiveRecoveryKey(), std::nullopt);
    EXPECT_FALSE(m_state.settings().archiveEnabled);
    EXPECT_EQ(m_state.settings().archiveVaultId, QStringLiteral("vault-1"));
}

TEST_F(Archive, resume_turnsAPausedVaultOnAndNothingElse)
{
    m_archive.resumeArchive(); // there is no vault
    haveVault(true);
    m_archive.resumeArchive(); // it is on
    settle();
    EXPECT_EQ(requests(), QStringList());
    haveVault(false);
    m_transport.expect(postEnable, archive(true));
    m_archive.resumeArchive();
    settle();
    EXPECT_TRUE(m_state.settings().archiveEnabled);
    expectMessage("Archive uploads resumed.");
}

TEST_F(Archive, recoveryKeyQuestion_asksAndSendsWhatWasPasted)
{
    m_dialogs.expectDialog();
    m_archive.recoverArchiveWithKey();
    settle();
    const DialogAlert alert = m_dialogs.alert();
    EXPECT_EQ(alert.message, QStringLiteral("Use recovery key"));
    EXPECT_EQ(alert.informativeText, QStringLiteral("Paste the recovery key for your Cloud Archive."));
    EXPECT_EQ(alert.buttons, QStringList({QStringLiteral("Use Key"), QStringLiteral("Cancel")}));
    const DialogField field{.label = {}, .placeholder = QStringLiteral("ostrel-vault_..."), .text = {}};
    EXPECT_EQ(alert.fields, QList<DialogField>{field});
    EXPECT_EQ(field.width, 320);
    EXPECT_EQ(field.height, 24);
    m_transport.expect(postRecover, archive(true));
    m_dialogs.answer(DialogResponse::firstButton, {recoveryKey});
    settle();
    expectMessage("Archive vault recovered.");
    EXPECT_TRUE(m_state.settings().archiveEnabled);
    EXPECT_TRUE(m_state.draftSettings().archiveEnabled);
}

TEST_F(Archive, recoveryKeyQuestionCancelled_sendsNothing)
{
    m_dialogs.expectDialog();
    m_archive.recoverArchiveWithKey();
    settle();
    m_dialogs.answer(DialogResponse::secondButton, {recoveryKey});
    settle();
    EXPECT_EQ(requests(), QStringList());
    EXPECT_EQ(m_state.archiveMessage(), std::nullopt);
}

TEST_F(Archive, pastedKeyWithBlanksAround_isTrimmedBeforeItIsSent)
{
    m_transport.expect(postRecover, archive(true));
    m_archive.recoverArchive(QStringLiteral(" \t\u00a0") + recoveryKey + QStringLiteral(" \r\n"));
    settle();
    EXPECT_EQ(lastBody(), "{\"recoveryKey\":\"" + recoveryKey.toUtf8() + "\"}");
}

TEST_F(Archive, emptyKey_isRequiredAndNothingIsSent)
{
    for (const char *nothing : {"", " ", "\n\t "}) {
        m_archive.recoverArchive(QString::fromLatin1(nothing));
        settle();
        expectError(QStringLiteral("Recovery key is required"));
    }
    EXPECT_EQ(m_transport.endpoints(), QStringList());
}

TEST_F(Archive, refresh_mirrorsSilentlyAndIsNoEdit)
{
    int busyChanges = 0;
    QObject::connect(&m_archive, &ArchiveArea::archiveBusyChanged, [&busyChanges] { ++busyChanges; });
    ObserverSettings draft = m_state.draftSettings();
    draft.model = QStringLiteral("being edited");
    m_state.setDraftSettings(draft);
    haveVault(true);
    EXPECT_EQ(busyChanges, 0);
    EXPECT_EQ(m_state.archiveMessage(), std::nullopt);
    EXPECT_TRUE(m_state.settings().archiveEnabled);
    draft.archiveEnabled = true;
    draft.archiveVaultId = QStringLiteral("vault-1");
    EXPECT_EQ(m_state.draftSettings(), draft) << "the unsaved edit is still there";
}

TEST_F(Archive, refreshThatFails_saysAndChangesNothing)
{
    haveVault(true);
    m_transport.expect(getArchive, refused());
    m_archive.refreshArchiveStatus();
    settle();
    EXPECT_EQ(m_state.archiveMessage(), std::nullopt);
    EXPECT_TRUE(m_state.settings().archiveEnabled);
}

TEST_F(Archive, refreshThatWasAskedBeforeAChange_isOldNews)
{
    haveVault(true);
    const auto old = m_transport.expectHeld(getArchive);
    m_archive.refreshArchiveStatus();
    settle();
    m_transport.expect(postDisable, archive(false));
    m_archive.disableArchive();
    settle();
    old->release(archive(true));
    settle();
    EXPECT_FALSE(m_state.settings().archiveEnabled);
}

TEST_F(Archive, key_isInNoFileNoLogAndNoArgument)
{
    LogRecorder log;
    confirm();
    m_transport.expect(postEnable, archive(true));
    m_archive.archiveWizardTurnOn();
    settle();
    m_transport.expect(postRecover, refused());
    m_archive.recoverArchive(recoveryKey);
    settle();
    EXPECT_FALSE(log.takeAll().join(u'\n').contains(recoveryKey));
    QDirIterator files(m_home.path(), QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    int count = 0;
    for (; files.hasNext(); ++count)
        EXPECT_FALSE(readFile(files.next()).value_or(QByteArray()).contains(recoveryKey.toUtf8()));
    EXPECT_GT(count, 0) << "there is a log of the observer";
    ASSERT_EQ(m_launcher.children().size(), 1);
    const auto &started = m_launcher.children().constFirst()->description;
    EXPECT_FALSE(started.arguments.join(u' ').contains(recoveryKey));
    EXPECT_FALSE(started.environment.toStringList().join(u' ').contains(recoveryKey));
}

TEST_F(Archive, destructionDuringARequest_takesItBack)
{
    const auto held = m_transport.expectHeld(postDisable);
    {
        ArchiveArea area(
            {.state = m_state, .observer = m_observer, .modals = m_modals, .dialogs = m_dialogs, .worker = m_worker});
        area.disableArchive();
        settle();
        EXPECT_TRUE(held->hasArrived());
    }
    EXPECT_TRUE(held->wasCancelled());
}

} // namespace
