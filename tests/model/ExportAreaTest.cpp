#include "ExportFixture.h"
#include "base/Paths.h"
#include "support/ScopedVariable.h"

#include <ctime>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

/// A time zone for this process until the end of the scope.
class ScopedTimeZone
{
public:
    explicit ScopedTimeZone(const char *zone) : m_variable("TZ", zone) { ::tzset(); }

private:
    /// Its destructor comes last, after that of the variable.
    struct Reread {
        ~Reread() { ::tzset(); }
    } m_reread;
    ScopedVariable m_variable;
};

class Export : public ExportFixture
{};

TEST_F(Export, members_haveTheirInitialValues)
{
    setNow("2026-11-21T12:00:00");
    build();
    EXPECT_EQ(area().archiveExportCard(), std::nullopt);
    EXPECT_EQ(area().archiveExportFrom(), QDate(2026, 11, 14));
    EXPECT_EQ(area().archiveExportTo(), QDate(2026, 11, 21));
    EXPECT_EQ(area().archiveExportDestination(), QStringLiteral("~/Desktop/ostrel-export"));
    EXPECT_EQ(area().archiveExportEstimate(), std::nullopt);
    EXPECT_FALSE(area().archiveExportEstimateFailed());
    EXPECT_EQ(area().archiveExportStatus(), std::nullopt);
}

TEST_F(Export, days_areThoseOfTheLocalTimeZone)
{
    for (const auto &[zone, day] : {std::pair("Pacific/Kiritimati", 22), std::pair("Pacific/Honolulu", 21)}) {
        const ScopedTimeZone timeZone(zone);
        setNow("2026-11-21T23:00:00Z");
        build();
        EXPECT_EQ(area().archiveExportTo(), QDate(2026, 11, day)) << zone;
    }
}

TEST_F(Export, dayStrings_arePlainWhateverTheLocale)
{
    EXPECT_EQ(ExportArea::exportDateString(QDate(2026, 1, 9)), QStringLiteral("2026-01-09"));
    QLocale::setDefault(QLocale(QLocale::Arabic, QLocale::Egypt));
    EXPECT_EQ(ExportArea::exportDateString(QDate(2026, 11, 21)), QStringLiteral("2026-11-21"));
    QLocale::setDefault(QLocale::c());
}

TEST_F(Export, openWithoutAVault_saysSoAndStaysClosed)
{
    for (const bool hasFile : {false, true}) {
        if (hasFile)
            saveVault("");
        area().openArchiveExportCard();
        settle();
        EXPECT_EQ(area().archiveExportCard(), std::nullopt);
        EXPECT_EQ(m_state.archiveMessage(), notConfigured);
        EXPECT_TRUE(m_state.archiveMessageIsError());
    }
    EXPECT_EQ(m_transport.endpoints(), QStringList());
}

TEST_F(Export, openWithASavedVault_configuresAndEstimates)
{
    m_state.setArchiveError(notConfigured);
    open();
    EXPECT_EQ(m_state.archiveMessage(), std::nullopt) << "that is no longer so";
    EXPECT_EQ(area().archiveExportEstimate(), (ArchiveExportEstimate{.clips = 10, .bytes = 12'300'000}));
    EXPECT_EQ(area().archiveExportEstimateText(), QStringLiteral("10 clips, 12.3 MB"));
    EXPECT_EQ(area().archiveExportStatus(), std::nullopt);
}

TEST_F(Export, openWithAVaultThatOnlyTheObserverKnows_opensToo)
{
    ObserverSettings settings = m_state.settings();
    settings.archiveVaultId = QStringLiteral("vault-1");
    m_state.setSettings(settings);
    m_transport.expect(postEstimate, estimated(1, 1));
    m_transport.expect(getExport, refused()); // a failure is ignored
    area().openArchiveExportCard();
    settle();
    EXPECT_EQ(area().archiveExportCard(), ArchiveExportCard::configure);
    EXPECT_EQ(area().archiveExportEstimateText(), QStringLiteral("1 clip, 1 byte"));
}

TEST_F(Export, openLater_meansTheLastSevenDaysUnlessDaysWereChosen)
{
    setNow("2026-11-21T12:00:00");
    build();
    setNow("2026-11-30T12:00:00");
    open();
    EXPECT_EQ(area().archiveExportFrom(), QDate(2026, 11, 23));
    EXPECT_EQ(area().archiveExportTo(), QDate(2026, 11, 30));
    area().setArchiveExportFrom(QDate(2026, 11, 1));
    area().closeArchiveExportCard();
    setNow("2026-12-24T12:00:00");
    open();
    EXPECT_EQ(area().archiveExportFrom(), QDate(2026, 11, 1));
    EXPECT_EQ(area().archiveExportTo(), QDate(2026, 11, 30));
}

TEST_F(Export, diskThatHangs_holdsNoEventUp)
{
    saveVault("vault-1");
    holdDisk();
    area().openArchiveExportCard();
    EXPECT_TRUE(handlesEvents());
    EXPECT_EQ(area().archiveExportCard(), std::nullopt);
    area().closeArchiveExportCard();
    releaseDisk();
    EXPECT_EQ(area().archiveExportCard(), std::nullopt) << "it was closed meanwhile";
}

TEST_F(Export, observerThatHangs_holdsNoEventUpAndTheCardCanBeClosed)
{
    open();
    const auto held = m_transport.expectHeld(postExport);
    area().startArchiveExport();
    settle();
    EXPECT_TRUE(handlesEvents());
    area().closeArchiveExportCard();
    held->release(answer(record("running")));
    settle();
    EXPECT_EQ(area().archiveExportCard(), std::nullopt) << "the export goes on without the card";
    EXPECT_EQ(m_clock.pendingTimerCount(), 0);
}

TEST_F(Export, rangeWithFromAfterTo_isSentAsItIs)
{
    open();
    area().setArchiveExportFrom(QDate(2026, 11, 21));
    area().setArchiveExportTo(QDate(2026, 11, 1));
    m_transport.expect(postEstimate, estimated(0, 0));
    area().refreshArchiveExportEstimate();
    settle();
    EXPECT_EQ(lastBody(), QByteArray(R"({"fromDate":"2026-11-21","toDate":"2026-11-01"})"));
    EXPECT_EQ(area().archiveExportEstimateText(), QStringLiteral("0 clips, 0 bytes"));
    m_transport.expect(postExport, refused());
    area().setArchiveExportDestination(QStringLiteral("/srv/out"));
    area().startArchiveExport();
    settle();
    const auto &sent = m_transport.requests()[m_transport.endpoints().indexOf(postExport)];
    EXPECT_EQ(sent.body, QByteArray(R"({"destinationDirectory":"/srv/out","fromDate":"2026-11-21",)"
                                    R"("toDate":"2026-11-01"})"));
}

TEST_F(Export, invalidDate_changesNothing)
{
    const QDate from = area().archiveExportFrom();
    area().setArchiveExportFrom(QDate());
    area().setArchiveExportTo(QDate(2026, 2, 30));
    EXPECT_EQ(area().archiveExportFrom(), from);
    EXPECT_TRUE(area().archiveExportTo().isValid());
}

TEST_F(Export, estimateThatFails_isSaidAndExportingIsStillAllowed)
{
    open();
    const auto held = m_transport.expectHeld(postEstimate);
    area().refreshArchiveExportEstimate();
    settle();
    EXPECT_EQ(area().archiveExportEstimateText(), QStringLiteral("Estimating size\u2026"));
    held->release(refused());
    settle();
    EXPECT_TRUE(area().archiveExportEstimateFailed());
    EXPECT_EQ(area().archiveExportEstimate(), std::nullopt);
    EXPECT_EQ(area().archiveExportEstimateText(), QStringLiteral("Size not known"));
    EXPECT_EQ(m_state.archiveMessage(), std::nullopt);
    m_transport.expect(postExport, answer(record("running")));
    m_transport.always(getExport, answer(record("running")));
    area().startArchiveExport();
    settle();
    EXPECT_EQ(area().archiveExportCard(), ArchiveExportCard::running);
}

TEST_F(Export, estimateWithoutAnObserver_failsAfterThirtyAttempts)
{
    m_transport.always(getStatus, FakeHttpTransport::failure(Fault::ConnectionRefused));
    area().refreshArchiveExportEstimate();
    settle();
    advance(7249ms);
    EXPECT_FALSE(area().archiveExportEstimateFailed());
    advance(1ms);
    EXPECT_TRUE(area().archiveExportEstimateFailed());
}

TEST_F(Export, estimateOfAnEarlierRange_doesNotReplaceTheLatest)
{
    const auto early = m_transport.expectHeld(postEstimate);
    area().refreshArchiveExportEstimate();
    settle();
    m_transport.expect(postEstimate, estimated(2, 2000));
    area().setArchiveExportFrom(QDate(2026, 1, 1));
    area().refreshArchiveExportEstimate();
    settle();
    EXPECT_TRUE(early->wasCancelled());
    EXPECT_EQ(area().archiveExportEstimateText(), QStringLiteral("2 clips, 2 KB"));
}

TEST_F(Export, chosenDestinationInTheHomeFolder_isStoredWithATilde)
{
    choose(m_home.path(QStringLiteral("films/out")));
    EXPECT_EQ(area().archiveExportDestination(), QStringLiteral("~/films/out"));
    choose(homeDirectory());
    EXPECT_EQ(area().archiveExportDestination(), QStringLiteral("~"));
}

TEST_F(Export, chosenDestinationOutsideTheHomeFolder_isStoredAsAnAbsolutePath)
{
    choose(QStringLiteral("/srv/out"));
    EXPECT_EQ(area().archiveExportDestination(), QStringLiteral("/srv/out"));
    choose(homeDirectory() + QStringLiteral("-of-another"));
    EXPECT_EQ(area().archiveExportDestination(), homeDirectory() + QStringLiteral("-of-another"));
}

TEST_F(Export, destinationPanel_takesOneFolderAndLeavingItChangesNothing)
{
    m_dialogs.expectDialog();
    area().chooseArchiveExportDestination();
    settle();
    const OpenPanel panel{.message = {},
                          .prompt = QStringLiteral("Choose"),
                          .canChooseFiles = false,
                          .canChooseDirectories = true,
                          .canCreateDirectories = true,
                          .allowedFileTypes = {},
                          .directory = {}};
    EXPECT_EQ(m_dialogs.openPanel(), panel);
    EXPECT_TRUE(m_modals.nativeModalActive());
    m_dialogs.leave();
    settle();
    EXPECT_EQ(area().archiveExportDestination(), QStringLiteral("~/Desktop/ostrel-export"));
}

TEST_F(Export, reveal_opensTheDestinationWithTheTildeResolved)
{
    m_dialogs.expectFolder();
    area().revealArchiveExportDestination();
    EXPECT_EQ(m_dialogs.openedFolders(), QStringList(homeDirectory() + QStringLiteral("/Desktop/ostrel-export")));
}

} // namespace
