#include "model/ArchiveTargetArea.h"
#include "ArchiveFixture.h"
#include "ArchiveTargets.h"
#include "support/LogRecorder.h"

#include <QDirIterator>
#include <QJsonDocument>
#include <QJsonObject>

using namespace ostrel;
using namespace std::chrono_literals;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

const QString secret = QStringLiteral("wJalrXUtnFEMI");

ArchiveTarget bucket(const QString &secretAccessKey)
{
    ArchiveTarget target;
    target.kind = ArchiveTarget::Kind::S3;
    target.endpoint = QStringLiteral("https://s3.example.org");
    target.bucket = QStringLiteral("footage");
    target.accessKeyId = QStringLiteral("AKID");
    target.secretAccessKey = secretAccessKey;
    return target;
}

FakeHttpTransport::Answer answer(const ArchiveTarget &target)
{
    return FakeHttpTransport::answer(target.toJson());
}

const ArchiveTarget nas = folderTarget(QStringLiteral("/mnt/nas"));

class ArchivePlace : public ArchiveFixture
{
protected:
    void haveTarget(const ArchiveTarget &target)
    {
        m_transport.expect(getTarget, answer(target));
        m_area.refreshArchiveTarget();
        settle();
        ASSERT_EQ(m_area.archiveTarget(), target);
        m_transport.forgetRequests();
    }
    void openCard(const ArchiveTarget &known = ArchiveTarget())
    {
        haveTarget(known);
        m_area.openArchiveTargetCard();
        ASSERT_TRUE(m_area.archiveTargetDraft());
    }
    void haveVault()
    {
        ObserverSettings settings = m_state.settings();
        settings.archiveVaultId = QStringLiteral("vault-1");
        m_state.setSettings(settings);
    }
    void save(const ArchiveTarget &draft)
    {
        m_area.setArchiveTargetDraft(draft);
        m_area.saveArchiveTarget();
        settle();
    }
    void expectError(const QString &words)
    {
        EXPECT_EQ(m_state.archiveMessage(), words);
        EXPECT_TRUE(m_state.archiveMessageIsError());
    }
    QString lastSecret() const
    {
        return QJsonDocument::fromJson(lastBody())[QStringLiteral("secretAccessKey")].toString();
    }

    ArchiveTargetArea m_area{{.state = m_state, .observer = m_observer, .modals = m_modals}};
};

TEST_F(ArchivePlace, refresh_tellsWhereItLiesAndThatItMayBeChosen)
{
    EXPECT_FALSE(m_area.archiveTargetOffered());
    haveTarget(nas);
    EXPECT_TRUE(m_area.archiveTargetOffered());
    EXPECT_EQ(m_state.archiveMessage(), std::nullopt);
}

TEST_F(ArchivePlace, observerThatKnowsNoPlaces_offersNoneAndSaysNothing)
{
    for (const int status : {404, 501}) {
        haveTarget(nas);
        m_transport.expect(getTarget, FakeHttpTransport::answer("{}", status));
        m_area.refreshArchiveTarget();
        settle();
        EXPECT_FALSE(m_area.archiveTargetOffered()) << status;
        EXPECT_EQ(m_area.archiveTarget(), std::nullopt);
        EXPECT_EQ(m_state.archiveMessage(), std::nullopt);
        m_area.openArchiveTargetCard();
        EXPECT_EQ(m_area.archiveTargetDraft(), std::nullopt);
    }
}

TEST_F(ArchivePlace, observerThatCannotBeAsked_changesNothing)
{
    haveTarget(nas);
    m_transport.expect(getTarget, FakeHttpTransport::failure(Fault::TimedOut));
    m_area.refreshArchiveTarget();
    settle();
    EXPECT_EQ(m_area.archiveTarget(), nas);
    EXPECT_EQ(m_state.archiveMessage(), std::nullopt);
}

TEST_F(ArchivePlace, placeThatTheObserverCannotMakeSenseOf_isSaidAndCanBeReplaced)
{
    m_transport.expect(getStatus, complaining(std::nullopt));
    m_transport.expect(getStatus, complaining(QStringLiteral("target.json can't be understood.")));
    m_transport.expect(getTarget, refused());
    m_area.refreshArchiveTarget();
    settle();
    expectError(QStringLiteral("target.json can't be understood."));
    EXPECT_EQ(m_area.archiveTarget(), std::nullopt);
    m_area.openArchiveTargetCard();
    m_transport.expect(putTarget, answer(nas));
    save(nas);
    EXPECT_EQ(m_area.archiveTarget(), nas);
}

TEST_F(ArchivePlace, save_takesThePlaceOverAndClosesTheCard)
{
    openCard();
    EXPECT_EQ(m_area.archiveTargetDraft()->kind, ArchiveTarget::Kind::Folder) << "what most will want";
    m_transport.expect(putTarget, answer(nas));
    save(nas);
    EXPECT_EQ(lastBody(), QByteArray(R"({"kind":"folder","lossless":false,"path":"/mnt/nas"})"));
    EXPECT_EQ(m_area.archiveTarget(), nas);
    EXPECT_EQ(m_area.archiveTargetDraft(), std::nullopt);
    EXPECT_FALSE(m_area.archiveTargetBusy());
    EXPECT_EQ(m_state.archiveMessage(), QStringLiteral("The archive's place is /mnt/nas."));
    EXPECT_FALSE(m_state.archiveMessageIsError());
}

TEST_F(ArchivePlace, saveTwiceQuickly_sendsOneRequest)
{
    openCard();
    const auto held = m_transport.expectHeld(putTarget);
    save(nas);
    m_area.saveArchiveTarget();
    m_area.openArchiveTargetCard();
    m_area.refreshArchiveTarget();
    settle();
    EXPECT_TRUE(m_area.archiveTargetBusy());
    EXPECT_EQ(requests(), QStringList(putTarget));
    held->release(answer(nas));
    settle();
    EXPECT_FALSE(m_area.archiveTargetBusy());
}

TEST_F(ArchivePlace, mistakeInTheDraft_isItsErrorAndNothingIsSent)
{
    openCard();
    save(folderTarget(QStringLiteral("nas")));
    expectError(QStringLiteral("Choose a folder; its path begins with / or ~/."));
    save(bucket({}));
    expectError(QStringLiteral("Enter the secret access key as the provider gave it."));
    EXPECT_EQ(requests(), QStringList());
    EXPECT_TRUE(m_area.archiveTargetDraft());
}

TEST_F(ArchivePlace, refusal_showsTheObserversWordsAndKeepsTheCard)
{
    openCard();
    m_transport.expect(getStatus, complaining(std::nullopt));
    m_transport.expect(getStatus, complaining(QStringLiteral("There is no folder /mnt/nas.")));
    m_transport.expect(putTarget, refused());
    save(nas);
    expectError(QStringLiteral("There is no folder /mnt/nas."));
    EXPECT_EQ(m_area.archiveTargetDraft(), nas);
    EXPECT_FALSE(m_area.archiveTargetBusy());
    EXPECT_EQ(m_area.archiveTarget(), ArchiveTarget()) << "where it was";
}

TEST_F(ArchivePlace, observerOutOfReach_isItsErrorAfterThirtyAttempts)
{
    openCard();
    m_transport.always(getStatus, FakeHttpTransport::failure(Fault::ConnectionRefused));
    save(nas);
    for (int i = 0; i < ObserverControl::reachableAttempts; ++i)
        advance(250ms);
    expectError(words(Fault::ConnectionRefused));
    EXPECT_TRUE(m_area.archiveTargetDraft());
}

TEST_F(ArchivePlace, anotherPlaceForAnArchiveInUse_isAskedAbout)
{
    haveVault();
    openCard(nas);
    m_dialogs.expectDialog();
    save(folderTarget(QStringLiteral("/mnt/other")));
    EXPECT_EQ(requests(), QStringList()) << "not before it is answered";
    EXPECT_THAT(m_dialogs.alert().informativeText.toStdString(),
                AllOf(HasSubstr("What is stored in /mnt/nas stays there."), HasSubstr("to /mnt/other.")));
    m_dialogs.answer(DialogResponse::secondButton);
    settle();
    EXPECT_EQ(requests(), QStringList());
    EXPECT_TRUE(m_area.archiveTargetDraft());
    EXPECT_FALSE(m_area.archiveTargetBusy());
    m_dialogs.expectDialog();
    m_transport.expect(putTarget, answer(folderTarget(QStringLiteral("/mnt/other"))));
    save(folderTarget(QStringLiteral("/mnt/other")));
    m_dialogs.answer(DialogResponse::firstButton);
    settle();
    EXPECT_EQ(m_area.archiveTarget(), folderTarget(QStringLiteral("/mnt/other")));
}

TEST_F(ArchivePlace, samePlaceForAnArchiveInUse_asksNothing)
{
    haveVault();
    openCard(nas);
    ArchiveTarget lossless = nas;
    lossless.lossless = true;
    m_transport.expect(putTarget, answer(lossless));
    save(lossless);
    EXPECT_EQ(m_area.archiveTarget(), lossless);
}

TEST_F(ArchivePlace, firstPlaceOfAnArchiveInUse_asksNothing)
{
    haveVault();
    openCard();
    m_transport.expect(putTarget, answer(nas));
    save(nas);
    EXPECT_EQ(m_area.archiveTarget(), nas);
}

TEST_F(ArchivePlace, secretLeftEmpty_staysTheOneOfTheSameAccount)
{
    openCard(bucket(ArchiveTarget::redacted));
    EXPECT_EQ(m_area.archiveTargetDraft()->secretAccessKey, QString()) << "it was not told";
    EXPECT_TRUE(m_area.archiveTargetSecretIsKept());
    ArchiveTarget next = bucket({});
    next.bucket = QStringLiteral("other");
    m_transport.expect(putTarget, answer(next));
    save(next);
    EXPECT_EQ(lastSecret(), ArchiveTarget::redacted);
}

TEST_F(ArchivePlace, secretLeftEmptyForAnotherAccount_isAskedFor)
{
    for (QString ArchiveTarget::*field : {&ArchiveTarget::endpoint, &ArchiveTarget::accessKeyId}) {
        openCard(bucket(ArchiveTarget::redacted));
        ArchiveTarget next = bucket({});
        next.*field += QLatin1Char('x');
        save(next);
        EXPECT_FALSE(m_area.archiveTargetSecretIsKept());
        expectError(QStringLiteral("Enter the secret access key as the provider gave it."));
        m_area.closeArchiveTargetCard();
    }
}

TEST_F(ArchivePlace, blanksAroundWhatWasPasted_areNotSent)
{
    openCard();
    m_transport.expect(putTarget, answer(bucket(ArchiveTarget::redacted)));
    save(bucket(QStringLiteral(" %1\n").arg(secret)));
    EXPECT_EQ(lastSecret(), secret);
}

TEST_F(ArchivePlace, secret_isInNoFileNoLogAndNoMessageAndForgottenWithTheCard)
{
    LogRecorder log;
    openCard();
    m_transport.expect(putTarget, refused());
    save(bucket(secret));
    EXPECT_FALSE(m_state.archiveMessage()->contains(secret));
    m_area.closeArchiveTargetCard();
    m_area.openArchiveTargetCard();
    EXPECT_EQ(m_area.archiveTargetDraft()->secretAccessKey, QString());
    EXPECT_THAT(log.takeAll().join(u'\n').toStdString(), Not(HasSubstr(secret.toStdString())));
    QDirIterator files(m_home.path(), QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    int count = 0;
    for (; files.hasNext(); ++count)
        EXPECT_FALSE(readFile(files.next()).value_or(QByteArray()).contains(secret.toUtf8()));
    EXPECT_GT(count, 0) << "there is a log of the observer";
}

TEST_F(ArchivePlace, folderPanel_startsWhereTheDraftIsAndTakesOneFolder)
{
    openCard(nas);
    m_dialogs.expectDialog();
    m_area.chooseArchiveTargetFolder();
    m_area.chooseArchiveTargetFolder(); // a second press shows no second panel
    settle();
    EXPECT_FALSE(m_dialogs.openPanel().canChooseFiles);
    EXPECT_TRUE(m_dialogs.openPanel().canChooseDirectories && m_dialogs.openPanel().canCreateDirectories);
    EXPECT_EQ(m_dialogs.openPanel().directory, nas.path);
    m_dialogs.choose(m_home.path(QStringLiteral("footage")));
    settle();
    EXPECT_EQ(m_area.archiveTargetDraft()->path, QStringLiteral("~/footage"));
    m_dialogs.expectDialog();
    m_area.chooseArchiveTargetFolder();
    settle();
    m_dialogs.leave();
    settle();
    EXPECT_EQ(m_area.archiveTargetDraft()->path, QStringLiteral("~/footage"));
}

TEST_F(ArchivePlace, cardClosedBehindThePanel_takesThePanelAway)
{
    openCard(nas);
    m_dialogs.expectDialog();
    m_area.chooseArchiveTargetFolder();
    settle();
    m_area.closeArchiveTargetCard();
    settle();
    EXPECT_EQ(m_dialogs.openDialogs(), 0);
    EXPECT_EQ(m_area.archiveTargetDraft(), std::nullopt);
}

TEST_F(ArchivePlace, cardClosedWhileSaving_seesThePlaceThrough)
{
    openCard();
    const auto held = m_transport.expectHeld(putTarget);
    save(nas);
    m_area.closeArchiveTargetCard();
    held->release(answer(nas));
    settle();
    EXPECT_EQ(m_area.archiveTarget(), nas);
    EXPECT_EQ(m_state.archiveMessage(), QStringLiteral("The archive's place is /mnt/nas."));
}

TEST_F(ArchivePlace, refreshAskedBeforeASave_isOldNews)
{
    openCard();
    const auto old = m_transport.expectHeld(getTarget);
    m_area.refreshArchiveTarget();
    settle();
    m_transport.expect(putTarget, answer(nas));
    save(nas);
    EXPECT_TRUE(old->wasCancelled());
    EXPECT_EQ(m_area.archiveTarget(), nas);
}

TEST_F(ArchivePlace, destructionDuringASave_takesItBack)
{
    haveTarget(nas);
    const auto held = m_transport.expectHeld(putTarget);
    {
        ArchiveTargetArea area({.state = m_state, .observer = m_observer, .modals = m_modals});
        m_transport.expect(getTarget, answer(nas));
        area.refreshArchiveTarget();
        settle();
        area.openArchiveTargetCard();
        area.saveArchiveTarget();
        settle();
        EXPECT_TRUE(held->hasArrived());
    }
    EXPECT_TRUE(held->wasCancelled());
}

} // namespace
