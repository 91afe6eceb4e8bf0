#include "PopoverFixture.h"

#include <QColor>
#include <QFileInfo>
#include <QImage>

#include <algorithm>
#include <cstdlib>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

/// How much two pictures differ to the eye: blocks of them that differ, which leaves out what the making of letters and
/// the saving in few colours do.
int differingBlocks(const QImage &one, const QImage &other)
{
    constexpr int block = 4;
    constexpr int visibly = 24;
    const auto coarse = [](const QImage &image) {
        return image.convertToFormat(QImage::Format_RGB32)
            .scaled(image.width() / block, image.height() / block, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    };
    const QImage first = coarse(one);
    const QImage second = coarse(other);
    int differing = 0;
    for (int y = 0; y < first.height(); ++y) {
        for (int x = 0; x < first.width(); ++x) {
            const QColor a = first.pixelColor(x, y);
            const QColor b = second.pixelColor(x, y);
            if (std::max({std::abs(a.red() - b.red()), std::abs(a.green() - b.green()),
                          std::abs(a.blue() - b.blue())}) > visibly)
                ++differing;
        }
    }
    return differing;
}

/// Every screen in light and in dark. Some pictures of them are kept in docs/pictures, and must look as those do;
/// scripts/pictures makes them anew where a change is meant.
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
    /// One that is kept.
    void compare(const QString &name)
    {
        take(name);
        const QString file = QStringLiteral(OSTREL_KEPT_PICTURES "/") + fileName(name);
        const QImage kept(file);
        const QImage drawn = m_view->grabWindow();
        if (isDrawingAnew())
            return;
        ASSERT_EQ(kept.size(), drawn.size()) << file.toStdString();
        constexpr int aSyllable = 8;
        EXPECT_LE(differingBlocks(kept, drawn), aSyllable)
            << file.toStdString() << " is not what is drawn; if it should be, run scripts/pictures";
        EXPECT_LE(QFileInfo(file).size(), 30'000) << file.toStdString();
    }
    /// One to be looked at when they are drawn anew.
    void take(const QString &name)
    {
        // Where nothing is to be pressed. Being told of no change, a new window would think it where it began.
        QTest::mouseMove(m_view.get(), {2, 401});
        QTest::mouseMove(m_view.get(), {2, 400});
        settle();
        if (isDrawingAnew()) {
            const QString file = qEnvironmentVariable("OSTREL_PICTURES") + u'/' + fileName(name);
            ASSERT_TRUE(m_view->grabWindow().save(file)) << file.toStdString();
        }
    }
    static bool isDrawingAnew() { return qEnvironmentVariableIsSet("OSTREL_PICTURES"); }
    static QString fileName(const QString &name)
    {
        return QStringLiteral("%1-%2.png").arg(name, GetParam() ? u"dark" : u"light");
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
    compare(QStringLiteral("recorder"));
    m_observer.expect(postStart, statusAnswer(true));
    press("Start recording");
    m_observer.always(getStatus, statusAnswer(true));
    compare(QStringLiteral("recording"));
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
    compare(QStringLiteral("permissions"));
}

TEST_P(Pictures, journal)
{
    writeJournal();
    m_defaults.lists[QStringLiteral("journalCollapsedDays")] = {QStringLiteral("2026-11-19"),
                                                                QStringLiteral("2026-11-20")};
    start();
    press("Journal");
    compare(QStringLiteral("journal"));
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
    compare(QStringLiteral("settings"));
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
    compare(QStringLiteral("archive-key"));
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
    compare(QStringLiteral("export-configure"));
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

INSTANTIATE_TEST_SUITE_P(Schemes, Pictures, testing::Bool(),
                         [](const auto &info) { return info.param ? std::string("dark") : std::string("light"); });

TEST(PictureComparison, anotherWord_isADifferenceAndTheCrispnessOfAnEdgeIsNone)
{
    QImage picture(320, 560, QImage::Format_RGB32);
    picture.fill(Qt::white);
    QImage blurred = picture;
    blurred.setPixelColor(100, 100, QColor(200, 200, 200));
    EXPECT_EQ(differingBlocks(picture, blurred), 0);
    for (int x = 40; x < 80; ++x) {
        for (int y = 100; y < 110; ++y)
            picture.setPixelColor(x, y, (x + y) % 2 == 0 ? Qt::black : Qt::white);
    }
    EXPECT_GT(differingBlocks(picture, blurred), 8);
}

} // namespace
