#include "model/SettingsDialogs.h"
#include "SettingsFixture.h"
#include "model/NativeModals.h"
#include "support/FakeDialogHost.h"

#include <QDir>

#include <latch>

using namespace ostrel;

namespace {

class SettingsScreen : public SettingsFixture
{
protected:
    void leave()
    {
        // The scope keeps the closure. NOLINTNEXTLINE(cppcoreguidelines-avoid-capturing-lambda-coroutines)
        m_tasks.spawn([this](std::stop_token) -> Task<> {
            const bool mayLeave = co_await m_screen->prepareToLeaveSettings();
            note(mayLeave ? "leaves" : "stays");
        });
    }
    QStringList outcomes() const
    {
        QStringList outcomes = m_steps;
        outcomes.removeAll(QStringLiteral("status"));
        return outcomes;
    }
    void edit(const char *model) { m_state.setDraftSettings(withModel(model)); }
    void useFolder(const QString &folder)
    {
        ObserverSettings settings = m_state.settings();
        settings.outputDirectory = folder;
        m_state.setSettings(settings);
        m_state.setDraftSettings(settings);
    }

    const QStringList m_leaves{QStringLiteral("leaves")};
    const QStringList m_stays{QStringLiteral("stays")};
    FakeDialogHost m_dialogs;
    NativeModals m_modals{m_clock, m_dialogs};
    std::unique_ptr<SettingsDialogs> m_screen = std::make_unique<SettingsDialogs>(SettingsDialogs::Dependencies{
        .state = m_state, .modals = m_modals, .editing = *m_editing, .dialogs = m_dialogs, .worker = m_observerQueue});
};

class LeavingSettings : public SettingsScreen
{};

TEST_F(LeavingSettings, noChanges_showsNoAlert)
{
    leave();
    EXPECT_EQ(outcomes(), m_leaves);
    EXPECT_FALSE(m_modals.nativeModalActive());
}

TEST_F(LeavingSettings, unsavedChanges_asksWithThreeButtonsInFrontOfEverything)
{
    edit("edited");
    m_dialogs.expectDialog();
    leave();
    EXPECT_EQ(m_dialogs.alert(),
              (DialogAlert{.message = QStringLiteral("Save settings changes?"),
                           .informativeText = QStringLiteral("You have unsaved settings changes."),
                           .buttons = {QStringLiteral("Save"), QStringLiteral("Discard"), QStringLiteral("Cancel")},
                           .fields = {}}));
    EXPECT_EQ(m_dialogs.placement(), DialogPlacement::ApplicationModal);
    EXPECT_EQ(outcomes(), QStringList()) << "nothing is decided yet";
    m_dialogs.answer(DialogResponse::thirdButton);
}

TEST_F(LeavingSettings, save_savesTheDraftAndLeaves)
{
    m_transport.expect(putSettings, accepted());
    edit("edited");
    m_dialogs.expectDialog();
    leave();
    m_dialogs.answer(DialogResponse::firstButton);
    settle();
    EXPECT_EQ(outcomes(), m_leaves);
    EXPECT_EQ(onDisk().model, QStringLiteral("edited"));
    EXPECT_EQ(m_state.settings(), m_state.draftSettings());
}

TEST_F(LeavingSettings, saveThatFails_staysWithTheEdits)
{
    breakTheFile();
    edit("edited");
    m_dialogs.expectDialog();
    leave();
    m_dialogs.answer(DialogResponse::firstButton);
    settle();
    EXPECT_EQ(outcomes(), m_stays);
    EXPECT_EQ(m_state.draftSettings().model, QStringLiteral("edited"));
    EXPECT_TRUE(m_state.helperError().has_value());
}

TEST_F(LeavingSettings, discard_restoresTheDraftToTheSavedRecord)
{
    edit("edited");
    m_dialogs.expectDialog();
    leave();
    m_dialogs.answer(DialogResponse::secondButton);
    EXPECT_EQ(outcomes(), m_leaves);
    EXPECT_EQ(m_state.draftSettings(), m_state.settings());
    EXPECT_EQ(m_state.settings(), ObserverSettings::defaults());
}

TEST_F(LeavingSettings, cancel_staysWithTheEdits)
{
    edit("edited");
    m_dialogs.expectDialog();
    leave();
    m_dialogs.answer(DialogResponse::thirdButton);
    EXPECT_EQ(outcomes(), m_stays);
    EXPECT_EQ(m_state.draftSettings().model, QStringLiteral("edited"));
}

TEST_F(LeavingSettings, askedAgainMeanwhile_staysAndTheFirstQuestionDecides)
{
    edit("edited");
    m_dialogs.expectDialog();
    leave();
    leave();
    EXPECT_EQ(outcomes(), m_stays);
    m_dialogs.answer(DialogResponse::secondButton);
    EXPECT_EQ(outcomes(), m_stays + m_leaves);
    leave();
    EXPECT_EQ(outcomes(), m_stays + m_leaves + m_leaves) << "no changes any more";
}

TEST_F(LeavingSettings, modelGoesMeanwhile_takesTheAlertAwayAndStays)
{
    edit("edited");
    m_dialogs.expectDialog();
    leave();
    m_screen.reset();
    EXPECT_EQ(m_dialogs.openDialogs(), 0);
    EXPECT_EQ(outcomes(), m_stays);
}

TEST_F(LeavingSettings, modelGoesDuringTheSave_saveIsSeenThrough)
{
    m_secrets.block();
    ObserverSettings draft = withModel("edited");
    draft.byokGoogleVertexApiKey = QStringLiteral("secret");
    m_state.setDraftSettings(draft);
    m_dialogs.expectDialog();
    leave();
    m_dialogs.answer(DialogResponse::firstButton);
    m_screen.reset();
    m_editing.reset();
    EXPECT_EQ(outcomes(), m_stays);
    m_secrets.unblock();
    settle();
    EXPECT_EQ(onDisk().model, QStringLiteral("edited"));
}

TEST_F(LeavingSettings, keyringThatHangsDuringTheSave_eventsAreHandledMeanwhile)
{
    m_transport.expect(putSettings, accepted());
    m_secrets.block();
    ObserverSettings draft = m_state.settings();
    draft.byokGoogleVertexApiKey = QStringLiteral("secret");
    m_state.setDraftSettings(draft);
    m_dialogs.expectDialog();
    leave();
    m_dialogs.answer(DialogResponse::firstButton);
    bool handled = false;
    QMetaObject::invokeMethod(&m_state, [&handled] { handled = true; }, Qt::QueuedConnection);
    settleEvents({&m_observerQueue});
    EXPECT_TRUE(handled);
    EXPECT_EQ(outcomes(), QStringList());
    m_secrets.unblock();
    settle();
    EXPECT_EQ(outcomes(), m_leaves);
}

class ChoosingTheOutputDirectory : public SettingsScreen
{};

TEST_F(ChoosingTheOutputDirectory, panel_choosesOneFolderAndStartsAtTheDrafts)
{
    useFolder(QStringLiteral("~/notes"));
    m_dialogs.expectDialog();
    m_screen->chooseOutputDirectory();
    OpenPanel expected;
    expected.canChooseFiles = false;
    expected.canChooseDirectories = true;
    expected.directory = m_home.path(QStringLiteral("notes"));
    EXPECT_EQ(m_dialogs.openPanel(), expected);
    EXPECT_EQ(m_dialogs.placement(), DialogPlacement::ApplicationModal);
    m_dialogs.leave();
}

TEST_F(ChoosingTheOutputDirectory, folderInTheHome_isKeptByItsShortNameAndNotSaved)
{
    const ObserverSettings before = m_state.settings();
    m_dialogs.expectDialog();
    m_screen->chooseOutputDirectory();
    m_dialogs.choose(m_home.path(QStringLiteral("other/journal")));
    EXPECT_EQ(m_state.draftSettings().outputDirectory, QStringLiteral("~/other/journal"));
    EXPECT_EQ(m_state.settings(), before);
    EXPECT_FALSE(readFile(SettingsStore::primaryFile()).has_value());
}

TEST_F(ChoosingTheOutputDirectory, folderElsewhere_isKeptWhole)
{
    m_dialogs.expectDialogs(2);
    m_screen->chooseOutputDirectory();
    m_dialogs.choose(QStringLiteral("/srv/journal"));
    EXPECT_EQ(m_state.draftSettings().outputDirectory, QStringLiteral("/srv/journal"));
    const QString namesake = QStringLiteral("/srv") + m_home.path();
    m_screen->chooseOutputDirectory();
    m_dialogs.choose(namesake);
    EXPECT_EQ(m_state.draftSettings().outputDirectory, namesake) << "the home folder's name within is not the home";
}

TEST_F(ChoosingTheOutputDirectory, cancel_changesNothing)
{
    edit("edited");
    const ObserverSettings draft = m_state.draftSettings();
    m_dialogs.expectDialog();
    m_screen->chooseOutputDirectory();
    m_dialogs.leave();
    EXPECT_EQ(m_state.draftSettings(), draft);
}

TEST_F(ChoosingTheOutputDirectory, editsMeanwhile_stay)
{
    m_dialogs.expectDialog();
    m_screen->chooseOutputDirectory();
    edit("edited");
    m_dialogs.choose(QStringLiteral("/srv/journal"));
    EXPECT_EQ(m_state.draftSettings().model, QStringLiteral("edited"));
    EXPECT_EQ(m_state.draftSettings().outputDirectory, QStringLiteral("/srv/journal"));
}

TEST_F(ChoosingTheOutputDirectory, calledTwice_showsOnePanel)
{
    m_dialogs.expectDialog();
    m_screen->chooseOutputDirectory();
    m_screen->chooseOutputDirectory();
    EXPECT_EQ(m_dialogs.openDialogs(), 1);
    m_dialogs.leave();
}

class RevealingTheOutputDirectory : public SettingsScreen
{};

TEST_F(RevealingTheOutputDirectory, missingFolder_isMadeWithItsParentsAndShown)
{
    useFolder(QStringLiteral("~/a/b/journal"));
    m_dialogs.expectFolder();
    m_screen->revealOutputDirectory();
    settle();
    const QString folder = m_home.path(QStringLiteral("a/b/journal"));
    EXPECT_TRUE(QDir(folder).exists());
    EXPECT_EQ(m_dialogs.openedFolders(), QStringList(folder));
}

TEST_F(RevealingTheOutputDirectory, draftNamesAnotherFolder_theSavedOneIsShown)
{
    useFolder(QStringLiteral("~/saved"));
    ObserverSettings draft = m_state.settings();
    draft.outputDirectory = QStringLiteral("~/draft");
    m_state.setDraftSettings(draft);
    m_dialogs.expectFolder();
    m_screen->revealOutputDirectory();
    settle();
    EXPECT_EQ(m_dialogs.openedFolders(), QStringList(m_home.path(QStringLiteral("saved"))));
    EXPECT_FALSE(QDir(m_home.path(QStringLiteral("draft"))).exists());
}

TEST_F(RevealingTheOutputDirectory, folderThatCannotBeMade_isNotShown)
{
    ASSERT_TRUE(writeFileAtomically(m_home.path(QStringLiteral("taken")), "a file"));
    for (const char *folder : {"~/taken", "~/taken/journal", ""}) {
        useFolder(QLatin1String(folder));
        m_screen->revealOutputDirectory();
        settle();
    }
    EXPECT_EQ(m_dialogs.openedFolders(), QStringList());
}

TEST_F(RevealingTheOutputDirectory, diskThatHangs_eventsAreHandledMeanwhileAndOneFolderIsShown)
{
    std::latch disk(1);
    m_observerQueue.post([&disk] { disk.wait(); });
    m_screen->revealOutputDirectory();
    m_screen->revealOutputDirectory();
    bool handled = false;
    QMetaObject::invokeMethod(&m_state, [&handled] { handled = true; }, Qt::QueuedConnection);
    settleEvents();
    EXPECT_TRUE(handled);
    EXPECT_EQ(m_dialogs.openedFolders(), QStringList());
    m_dialogs.expectFolder();
    disk.count_down();
    settle();
}

TEST_F(RevealingTheOutputDirectory, modelGoesMeanwhile_nothingIsShown)
{
    std::latch disk(1);
    m_observerQueue.post([&disk] { disk.wait(); });
    m_screen->revealOutputDirectory();
    m_screen.reset();
    disk.count_down();
    settle();
    EXPECT_EQ(m_dialogs.openedFolders(), QStringList());
}

} // namespace
