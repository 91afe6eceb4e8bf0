#include "PopoverFixture.h"

#include <QClipboard>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

const QString getArchive = QStringLiteral("GET /api/archive/status");
const QString putSettings = QStringLiteral("PUT /api/settings");

class SettingsScreen : public PopoverFixture
{
protected:
    SettingsScreen() { m_settings.outputDirectory = QStringLiteral("~/ostrel/journal"); }

    void openSettings()
    {
        m_observer.always(getArchive, archiveAnswer(m_settings.archiveEnabled, m_settings.archiveVaultId));
        open();
        press("Settings");
    }
    static FakeHttpTransport::Answer archiveAnswer(bool enabled, const QString &vault)
    {
        return FakeHttpTransport::answer(
            ArchiveStatus{.archiveEnabled = enabled, .archiveVaultId = vault, .recoveryKey = {}}.toJson());
    }
    void expectSaved()
    {
        m_observer.expect(putSettings, statusAnswer(false));
        m_observer.always(getArchive, archiveAnswer(false, {}));
    }
    /// Types into the field of that name, after what stands there.
    void type(const char *field, const QString &text)
    {
        screen().item(QString::fromUtf8(field), QAccessible::EditableText)->forceActiveFocus();
        QTest::keyClick(m_view.get(), Qt::Key_End, Qt::ControlModifier);
        for (const QChar c : text)
            QTest::keyClick(m_view.get(), c.toLatin1());
        settle();
    }
    /// By the keyboard: it stands further down the page.
    void turnStartAtLogin()
    {
        screen().item(QStringLiteral("Open Tamsk Ostrel when you log in"))->forceActiveFocus();
        key(Qt::Key_Return);
    }
    bool isOnSettings() const { return shows("Custom instructions"); }
};

TEST_F(SettingsScreen, opened_showsTheSettingsInForce)
{
    openSettings();
    EXPECT_TRUE(shows("Output directory") && shows("Custom instructions") && shows("Cloud Archive"));
    EXPECT_TRUE(shows("Back up raw footage to the cloud, encrypted on this Mac."));
    EXPECT_TRUE(shows("BYOK inference") && shows("Ostrel managed"));
    EXPECT_TRUE(shows("Route inference directly to your Vertex AI account"));
    EXPECT_TRUE(showsButton("Choose…") && showsButton("Add key"));
    EXPECT_FALSE(showsButton("Use Ostrel"));
    EXPECT_FALSE(showsButton("Restore default"));
    EXPECT_FALSE(screen().button(QStringLiteral("Save"))->isEnabled());
    EXPECT_EQ(screen().nameless(), QStringList());
}

TEST_F(SettingsScreen, typed_isSavedByTheButton)
{
    openSettings();
    type("Output directory", QStringLiteral("2"));
    EXPECT_EQ(m_model->draftSettings().outputDirectory, QStringLiteral("~/ostrel/journal2"));
    EXPECT_EQ(m_model->settings().outputDirectory, QStringLiteral("~/ostrel/journal"));
    expectSaved();
    press("Save");
    EXPECT_EQ(m_model->settings().outputDirectory, QStringLiteral("~/ostrel/journal2"));
    EXPECT_FALSE(screen().button(QStringLiteral("Save"))->isEnabled());
}

TEST_F(SettingsScreen, restoreDefault_putsTheInstructionsBack)
{
    m_settings.instructions = QStringLiteral("Short");
    openSettings();
    type("Custom instructions", QStringLiteral("er"));
    EXPECT_EQ(m_model->draftSettings().instructions, QStringLiteral("Shorter"));
    press("Restore default");
    EXPECT_EQ(m_model->draftSettings().instructions, ObserverSettings::defaults().instructions);
    EXPECT_EQ(
        screen().item(QStringLiteral("Custom instructions"), QAccessible::EditableText)->property("text").toString(),
        ObserverSettings::defaults().instructions);
}

TEST_F(SettingsScreen, backWithoutChanges_leavesAtOnce)
{
    openSettings();
    press("Back");
    EXPECT_TRUE(showsButton("Start recording"));
}

TEST_F(SettingsScreen, backWithUnsavedChanges_asksAndStaysAfterCancel)
{
    openSettings();
    type("Output directory", QStringLiteral("2"));
    m_dialogs.expectDialog();
    press("Back");
    EXPECT_EQ(m_dialogs.alert().message, QStringLiteral("Save settings changes?"));
    EXPECT_TRUE(isOnSettings());
    m_dialogs.answer(DialogResponse::thirdButton);
    settle();
    EXPECT_TRUE(isOnSettings());
    EXPECT_EQ(m_model->draftSettings().outputDirectory, QStringLiteral("~/ostrel/journal2"));
}

TEST_F(SettingsScreen, backWithUnsavedChanges_leavesAfterDiscard)
{
    openSettings();
    type("Output directory", QStringLiteral("2"));
    m_dialogs.expectDialog();
    press("Back");
    m_dialogs.answer(DialogResponse::secondButton);
    settle();
    EXPECT_TRUE(showsButton("Start recording"));
    EXPECT_EQ(m_model->draftSettings(), m_model->settings());
}

TEST_F(SettingsScreen, choose_asksForAFolder)
{
    openSettings();
    m_dialogs.expectDialog();
    press("Choose…");
    m_dialogs.choose(QDir::homePath() + QStringLiteral("/elsewhere"));
    settle();
    EXPECT_EQ(m_model->draftSettings().outputDirectory, QStringLiteral("~/elsewhere"));
    EXPECT_EQ(screen().item(QStringLiteral("Output directory"), QAccessible::EditableText)->property("text"),
              QStringLiteral("~/elsewhere"));
}

TEST_F(SettingsScreen, withAnOwnKey_offersTheWayBack)
{
    m_settings.inferenceProvider = QStringLiteral("google_vertex_ai");
    m_settings.byokGoogleVertexAuthMode = QStringLiteral("api_key");
    openSettings();
    EXPECT_TRUE(shows("BYOK Vertex - API key"));
    EXPECT_TRUE(shows("API key not saved."));
    m_dialogs.expectDialog();
    press("Use Ostrel");
    EXPECT_EQ(m_dialogs.alert().message, QStringLiteral("Switch to Ostrel-managed inference?"));
    m_dialogs.answer(DialogResponse::secondButton);
    settle();
    EXPECT_TRUE(shows("BYOK Vertex - API key"));
}

TEST_F(SettingsScreen, archiveButtons_followItsState)
{
    openSettings();
    EXPECT_TRUE(showsButton("Enable") && showsButton("Use key"));
    EXPECT_FALSE(showsButton("Disable") || showsButton("Resume") || showsButton("Export footage") || shows("Paused"));
    m_observer.always(getArchive, archiveAnswer(true, QStringLiteral("v")));
    m_popover->archive()->refreshArchiveStatus();
    settle();
    EXPECT_TRUE(showsButton("Disable") && showsButton("Export footage"));
    EXPECT_FALSE(showsButton("Enable") || showsButton("Use key") || showsButton("Resume") || shows("Paused"));
    m_observer.always(getArchive, archiveAnswer(false, QStringLiteral("v")));
    m_popover->archive()->refreshArchiveStatus();
    settle();
    EXPECT_TRUE(shows("Paused") && showsButton("Resume") && showsButton("Use key") && showsButton("Export footage"));
    EXPECT_FALSE(showsButton("Enable") || showsButton("Disable"));
}

TEST_F(SettingsScreen, pausing_saysThatItIsDone)
{
    m_settings.archiveEnabled = true;
    m_settings.archiveVaultId = QStringLiteral("v");
    openSettings();
    m_observer.expect(QStringLiteral("POST /api/archive/disable"), archiveAnswer(false, QStringLiteral("v")));
    m_observer.always(getArchive, archiveAnswer(false, QStringLiteral("v")));
    press("Disable");
    EXPECT_TRUE(shows("Archive uploads paused."));
    EXPECT_TRUE(shows("Paused"));
}

TEST_F(SettingsScreen, startAtLogin_takesEffectAtOnceAndIsNoUnsavedChange)
{
    openSettings();
    EXPECT_TRUE(shows("Start at login"));
    turnStartAtLogin();
    EXPECT_TRUE(m_autostart.on);
    EXPECT_TRUE(m_popover->autostart()->isOn());
    EXPECT_FALSE(m_popover->settings()->hasUnsavedChanges());
    turnStartAtLogin();
    EXPECT_FALSE(m_autostart.on);
}

TEST_F(SettingsScreen, startAtLoginThatIsRefused_staysOffAndSaysWhy)
{
    openSettings();
    m_autostart.isReadOnly = true;
    turnStartAtLogin();
    EXPECT_EQ(m_autostart.turns, QList<bool>{true});
    EXPECT_EQ(screen().item(QStringLiteral("Open Tamsk Ostrel when you log in"))->property("checked"), false);
    EXPECT_TRUE(shows(qUtf8Printable(m_popover->autostart()->error())));
    EXPECT_NE(m_popover->autostart()->error(), QString());
}

TEST_F(SettingsScreen, editKeys_reachTheFieldThatHasTheKeyboard)
{
    openSettings();
    const auto text = [this] { return m_popover->settings()->outputDirectory(); };
    const QString before = text();
    screen().item(QStringLiteral("Output directory"), QAccessible::EditableText)->forceActiveFocus();
    key(Qt::Key_A, Qt::ControlModifier);
    key(Qt::Key_C, Qt::ControlModifier);
    EXPECT_EQ(QGuiApplication::clipboard()->text(), before);
    key(Qt::Key_X, Qt::ControlModifier);
    EXPECT_EQ(text(), QString());
    key(Qt::Key_V, Qt::ControlModifier);
    key(Qt::Key_V, Qt::ControlModifier);
    EXPECT_EQ(text(), before + before);
}

TEST_F(SettingsScreen, withoutUpdates_theVersionIsPlainText)
{
    m_version = QStringLiteral("dev");
    openSettings();
    EXPECT_TRUE(shows("vdev"));
    EXPECT_FALSE(showsButton("vdev"));
}

TEST_F(SettingsScreen, withUpdates_theVersionLooksForOne)
{
    int checks = 0;
    m_checkForUpdates = [&checks] { ++checks; };
    openSettings();
    press("v0.1.0");
    EXPECT_EQ(checks, 1);
}

} // namespace
