#include "PopoverFixture.h"

#include <QScopeGuard>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

const QString getArchive = QStringLiteral("GET /api/archive/status");
const QString prepare = QStringLiteral("POST /api/archive/prepare");
const QString enable = QStringLiteral("POST /api/archive/enable");
const QString estimate = QStringLiteral("POST /api/archive/export/estimate");
const QString getExport = QStringLiteral("GET /api/archive/export/status");
const QString vault = QStringLiteral("v");
const QString recoveryKey = QStringLiteral("ostrel-vault_1qy352euf40x77");

/// What is laid over the settings screen.
class Overlays : public PopoverFixture
{
protected:
    void openSettings(const QString &vaultId = {})
    {
        m_settings.archiveVaultId = vaultId;
        m_observer.always(getArchive, answer({.archiveVaultId = vaultId, .recoveryKey = {}}));
        open();
        press("Settings");
    }
    void openExport(const ArchiveExportStatus &status)
    {
        m_observer.always(getExport, FakeHttpTransport::answer(status.toJson()));
        m_observer.always(estimate,
                          FakeHttpTransport::answer(ArchiveExportEstimate{.clips = 600, .bytes = 12'300'000}.toJson()));
        openSettings(vault);
        press("Export footage");
    }
    /// The next poll finds the export like this.
    void progress(const ArchiveExportStatus &status)
    {
        m_observer.always(getExport, FakeHttpTransport::answer(status.toJson()));
        advance(1s);
    }
    static ArchiveExportStatus status(const char *state, qint64 exported = 0, qint64 skipped = 0)
    {
        return {.state = QString::fromUtf8(state),
                .exported = exported,
                .total = 600,
                .skipped = skipped,
                .currentDay = {},
                .error = {}};
    }
    static FakeHttpTransport::Answer answer(const ArchiveStatus &status)
    {
        return FakeHttpTransport::answer(status.toJson());
    }
};

TEST_F(Overlays, wizard_leadsFromTheWordsOverTheKeyToAnArchiveThatIsOn)
{
    openSettings();
    press("Enable");
    EXPECT_TRUE(m_popover->popoverOverlayActive());
    EXPECT_EQ(screen().focused(), QStringLiteral("Continue"));
    EXPECT_TRUE(
        shows("Keeps an encrypted copy of your raw footage in the cloud. Everything is encrypted on this Mac — Tamsk "
              "can never view your recordings. Restore them anytime, on any Mac, with your recovery key."));
    m_observer.expect(prepare, answer({.archiveVaultId = vault, .hasRecoveryKey = true, .recoveryKey = recoveryKey}));
    press("Continue");
    EXPECT_TRUE(shows("Save your recovery key"));
    EXPECT_TRUE(shows("This key encrypts your footage. It's shown only once."));
    EXPECT_TRUE(shows("Without this key, archived footage cannot be recovered."));
    EXPECT_EQ(screen().item(QStringLiteral("Recovery key"))->property("text"), recoveryKey);
    m_dialogs.expectPasteboard();
    press("Copy");
    EXPECT_TRUE(shows("Recovery key copied."));
    EXPECT_EQ(screen().nameless(), QStringList());
    press("Next");
    EXPECT_FALSE(screen().button(QStringLiteral("Turn on archive"))->isEnabled());
    key(Qt::Key_Space);
    EXPECT_TRUE(m_popover->archive()->archiveKeySavedConfirmed());
    m_observer.expect(enable, answer({.archiveEnabled = true, .archiveVaultId = vault, .recoveryKey = {}}));
    press("Turn on archive");
    EXPECT_FALSE(m_popover->popoverOverlayActive());
    EXPECT_TRUE(showsButton("Disable"));
}

TEST_F(Overlays, wizardWhilePreparing_saysSo)
{
    openSettings();
    press("Enable");
    const auto held = m_observer.expectHeld(prepare);
    key(Qt::Key_Return);
    EXPECT_FALSE(screen().button(QStringLiteral("Preparing…"))->isEnabled());
    held->release(FakeHttpTransport::answer({}, 500));
    settle();
    EXPECT_TRUE(screen().button(QStringLiteral("Continue"))->isEnabled());
    EXPECT_TRUE(screen().has(m_popover->archive()->archiveMessage()));
}

TEST_F(Overlays, escape_cancelsTheWizardAndNotThePanel)
{
    openSettings();
    press("Enable");
    QKeyEvent escape(QEvent::KeyPress, Qt::Key_Escape, Qt::NoModifier);
    QCoreApplication::sendEvent(m_view.get(), &escape);
    settle();
    EXPECT_TRUE(escape.isAccepted());
    EXPECT_EQ(m_popover->archive()->archiveWizardStep(), ArchiveForm::Closed);
    QKeyEvent second(QEvent::KeyPress, Qt::Key_Escape, Qt::NoModifier);
    QCoreApplication::sendEvent(m_view.get(), &second);
    EXPECT_FALSE(second.isAccepted());
}

TEST_F(Overlays, tab_staysOnTheCard)
{
    openSettings();
    press("Enable");
    QStringList visited;
    for (int i = 0; i < 4; ++i) {
        key(Qt::Key_Tab);
        visited.append(screen().focused());
    }
    EXPECT_EQ(QSet<QString>(visited.begin(), visited.end()),
              (QSet<QString>{QStringLiteral("Cancel"), QStringLiteral("Continue")}));
}

TEST_F(Overlays, exportCard_estimatesARangeAndExportsIt)
{
    openExport(status("idle"));
    EXPECT_TRUE(shows("Restores decrypted recordings to a folder, organized by day and display, with a manifest for "
                      "tooling."));
    EXPECT_TRUE(shows("~/Desktop/ostrel-export"));
    EXPECT_TRUE(screen().has(m_popover->footageExport()->estimateText()));
    EXPECT_EQ(screen().nameless(), QStringList());
    m_observer.expect(QStringLiteral("POST /api/archive/export"),
                      FakeHttpTransport::answer(status("running", 348).toJson()));
    m_observer.always(getExport, FakeHttpTransport::answer(status("running", 348).toJson()));
    press("Export");
    EXPECT_TRUE(shows("Exporting…") && shows("348 of 600 clips"));
    EXPECT_DOUBLE_EQ(m_popover->footageExport()->progress(), 0.58);
    progress(status("done", 598, 2));
    EXPECT_TRUE(shows("Export complete") && shows("598 clips, 2 skipped"));
    m_dialogs.expectFolder();
    press("Reveal in Finder");
    press("Done");
    EXPECT_EQ(m_popover->footageExport()->archiveExportCard(), ExportForm::Closed);
}

TEST_F(Overlays, anExportUnderWay_isTakenUpAndItsEndIsSaid)
{
    openExport(status("running", 3));
    EXPECT_TRUE(shows("3 of 600 clips"));
    m_observer.expect(QStringLiteral("POST /api/archive/export/cancel"),
                      FakeHttpTransport::answer(status("cancelled", 3).toJson()));
    press("Cancel");
    EXPECT_TRUE(shows("Exporting…"));
    progress(status("cancelled", 3));
    EXPECT_TRUE(shows("Export cancelled"));
    EXPECT_FALSE(showsButton("Reveal in Finder"));
}

TEST_F(Overlays, aFailedExport_saysWhyOrThatSomethingWentWrong)
{
    openExport(status("running", 3));
    progress(status("failed", 3));
    EXPECT_TRUE(shows("Export failed") && shows("Something went wrong."));
    press("Done");
}

TEST_F(Overlays, calendarFromRightToLeft_isMirroredAsTheScreensAre)
{
    QGuiApplication::setLayoutDirection(Qt::RightToLeft);
    const auto back = qScopeGuard([] { QGuiApplication::setLayoutDirection(Qt::LeftToRight); });
    openExport(status("idle"));
    screen().button(QStringLiteral("From, 7 Nov 2023"))->forceActiveFocus();
    key(Qt::Key_Return);
    const qreal previous = screen().button(QStringLiteral("Previous month"))->mapToScene({}).x();
    const qreal next = screen().button(QStringLiteral("Next month"))->mapToScene({}).x();
    EXPECT_GT(previous, next);
    key(Qt::Key_Left);
    key(Qt::Key_Return);
    EXPECT_EQ(m_popover->footageExport()->archiveExportFrom(), QStringLiteral("2023-11-08")) << "to the left is later";
}

TEST_F(Overlays, calendar_picksADayByKeyboard)
{
    openExport(status("idle"));
    screen().button(QStringLiteral("From, 7 Nov 2023"))->forceActiveFocus();
    key(Qt::Key_Return);
    key(Qt::Key_Left);
    key(Qt::Key_PageUp);
    key(Qt::Key_Return);
    EXPECT_EQ(m_popover->footageExport()->archiveExportFrom(), QStringLiteral("2023-10-06"));
    EXPECT_EQ(screen().focused(), QStringLiteral("From, 6 Oct 2023"));
    key(Qt::Key_Up);
    EXPECT_EQ(m_popover->footageExport()->archiveExportFrom(), QStringLiteral("2023-10-07"));
}

} // namespace
