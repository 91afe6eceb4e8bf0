#include "PopoverFixture.h"

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

/// Makes a picture of every screen, in light and in dark: for the documents, and to be looked at.
class Pictures : public PopoverFixture, public testing::WithParamInterface<bool>
{
protected:
    Pictures()
    {
        m_clock.setNowMs(QDateTime(QDate(2026, 11, 21), QTime(14, 0)).toMSecsSinceEpoch());
        m_settings.outputDirectory = QStringLiteral("~/ostrel/journal");
        QDir(QDir::homePath() + QStringLiteral("/ostrel")).removeRecursively();
    }

    void start()
    {
        open();
        m_popover->appearance()->setDark(GetParam());
        settle();
    }
    void take(const QString &name)
    {
        settle();
        const QString folder = qEnvironmentVariable("OSTREL_PICTURES", QDir::currentPath());
        const QString file = QStringLiteral("%1/%2-%3.png").arg(folder, name, GetParam() ? u"dark" : u"light");
        ASSERT_TRUE(m_view->grabWindow().save(file)) << file.toStdString();
    }
    void writeJournal() const
    {
        writeDay(QStringLiteral("2026-11-21"), R"(# 2026-11-21, Saturday

## Session a
start_time: 2026-11-21T09:02:11+01:00

- [09:04] [GitHub] action: Reviewed pull request #12 “Fix crash on wake” and left two comments
- [09:21] [VS Code] action: Edited CaptureRecoveryPolicy.cpp and its test
- [09:48] [Terminal] action: Ran the capture benchmark; 1.1 ms per unchanged frame

## Session b
start_time: 2026-11-21T13:30:40+01:00

- [13:33] [Gmail] action: Replied to “Quarterly figures”
- [13:52] [Google Docs] action: Rewrote the introduction of “Release notes 1.0”
- [14:05] Looked up train times to Leipzig
)");
        writeDay(QStringLiteral("2026-11-20"), entries(12));
        writeDay(QStringLiteral("2026-11-19"), entries(3));
    }
};

TEST_P(Pictures, recorder)
{
    start();
    take(QStringLiteral("recorder"));
    m_observer.expect(postStart, statusAnswer(true));
    press("Start recording");
    m_observer.always(getStatus, statusAnswer(true));
    take(QStringLiteral("recording"));
}

TEST_P(Pictures, recorderWithAnOwnKey)
{
    m_settings.inferenceProvider = QStringLiteral("google_vertex_ai");
    start();
    take(QStringLiteral("recorder-byok"));
}

TEST_P(Pictures, recorderInTrouble)
{
    m_launcher.expectLaunch();
    ObserverStatus status;
    status.lastError = QStringLiteral("Can't write the journal: no space left on device. Free some space; what was "
                                      "recorded meanwhile is kept.");
    m_observer.always(getStatus, FakeHttpTransport::answer(status.toJson()));
    build();
    show();
    m_popover->appearance()->setDark(GetParam());
    take(QStringLiteral("recorder-error"));
}

TEST_P(Pictures, permissions)
{
    m_accessibilityGranted = false;
    start();
    take(QStringLiteral("permissions"));
}

TEST_P(Pictures, journal)
{
    writeJournal();
    m_defaults.lists[QStringLiteral("journalCollapsedDays")] = {QStringLiteral("2026-11-19"),
                                                                QStringLiteral("2026-11-20")};
    start();
    press("Journal");
    take(QStringLiteral("journal"));
    key(Qt::Key_Down);
    take(QStringLiteral("journal-keyboard"));
}

TEST_P(Pictures, emptyJournal)
{
    start();
    press("Journal");
    take(QStringLiteral("journal-empty"));
}

TEST_P(Pictures, settings)
{
    m_settings.archiveVaultId = QStringLiteral("vault");
    m_observer.always(QStringLiteral("GET /api/archive/status"),
                      FakeHttpTransport::answer(
                          ArchiveStatus{.archiveVaultId = QStringLiteral("vault"), .recoveryKey = {}}.toJson()));
    start();
    press("Settings");
    take(QStringLiteral("settings"));
    m_popover->settings()->setInstructions(QStringLiteral("In one sentence each, please."));
    take(QStringLiteral("settings-edited"));
}

TEST_P(Pictures, archiveWizard)
{
    m_observer.always(QStringLiteral("GET /api/archive/status"), FakeHttpTransport::answer(ArchiveStatus().toJson()));
    start();
    press("Settings");
    press("Enable");
    take(QStringLiteral("archive-intro"));
    const ArchiveStatus prepared{
        .archiveVaultId = QStringLiteral("vault"),
        .hasRecoveryKey = true,
        .recoveryKey = QStringLiteral("ostrel-vault_1qy352euf40x77qfrg4ncn27dauqjx3t83x4ummcpzt0pu5gq0a7xjsk2m9")};
    m_observer.expect(QStringLiteral("POST /api/archive/prepare"), FakeHttpTransport::answer(prepared.toJson()));
    press("Continue");
    take(QStringLiteral("archive-key"));
    press("Next");
    take(QStringLiteral("archive-confirm"));
    press("Back");
    key(Qt::Key_Escape);
}

TEST_P(Pictures, exportCard)
{
    m_settings.archiveVaultId = QStringLiteral("vault");
    m_settings.archiveEnabled = true;
    m_observer.always(QStringLiteral("GET /api/archive/status"), FakeHttpTransport::answer(ArchiveStatus{
                                                                     .archiveEnabled = true,
                                                                     .archiveVaultId = QStringLiteral("vault"),
                                                                     .recoveryKey = {}}.toJson()));
    ArchiveExportStatus status{.state = QStringLiteral("idle"), .currentDay = {}, .error = {}};
    const QString getExport = QStringLiteral("GET /api/archive/export/status");
    m_observer.always(getExport, FakeHttpTransport::answer(status.toJson()));
    m_observer.always(QStringLiteral("POST /api/archive/export/estimate"),
                      FakeHttpTransport::answer(ArchiveExportEstimate{.clips = 600, .bytes = 734'003'200}.toJson()));
    start();
    press("Settings");
    press("Export footage");
    take(QStringLiteral("export-configure"));
    screen().item(QStringLiteral("From, 14 Nov 2026"))->forceActiveFocus();
    key(Qt::Key_Return);
    take(QStringLiteral("export-calendar"));
    key(Qt::Key_Escape);
    status.state = QStringLiteral("running");
    status.exported = 348;
    status.total = 600;
    m_observer.always(getExport, FakeHttpTransport::answer(status.toJson()));
    m_observer.expect(QStringLiteral("POST /api/archive/export"), FakeHttpTransport::answer(status.toJson()));
    press("Export");
    take(QStringLiteral("export-running"));
    status.state = QStringLiteral("done");
    status.exported = 598;
    status.skipped = 2;
    m_observer.always(getExport, FakeHttpTransport::answer(status.toJson()));
    advance(1s);
    take(QStringLiteral("export-finished"));
    press("Done");
}

INSTANTIATE_TEST_SUITE_P(Schemes, Pictures, testing::Bool());

} // namespace
