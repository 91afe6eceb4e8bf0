#include "ExportFixture.h"

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

class ExportRun : public ExportFixture
{};

TEST_F(ExportRun, openWhileTheObserverExports_showsItsProgressAtOnce)
{
    saveVault("vault-1");
    m_transport.expect(postEstimate, estimated(10, 1000));
    m_transport.expect(getExport, answer(record("running", 4)));
    const auto nextPoll = m_transport.expectHeld(getExport);
    area().openArchiveExportCard();
    settle();
    EXPECT_EQ(area().archiveExportCard(), ArchiveExportCard::running);
    EXPECT_EQ(area().archiveExportStatus(), record("running", 4));
    nextPoll->release(answer(record("done", 10)));
    settle();
    EXPECT_EQ(area().archiveExportCard(), ArchiveExportCard::finished);
}

TEST_F(ExportRun, start_sendsTheExpandedDestinationAndPollsUntilDone)
{
    run();
    poll(record("running", 5));
    EXPECT_EQ(area().archiveExportStatus(), record("running", 5));
    ArchiveExportStatus done = record("done", 9);
    done.skipped = 1;
    poll(done);
    EXPECT_EQ(area().archiveExportCard(), ArchiveExportCard::finished);
    EXPECT_EQ(area().archiveExportStatus(), done);
    EXPECT_EQ(m_clock.pendingTimerCount(), 0) << "the loop has ended";
    EXPECT_EQ(requests(), QStringList({getExport, getExport}));
}

TEST_F(ExportRun, startTwiceQuickly_sendsOneExport)
{
    open();
    const auto held = m_transport.expectHeld(postExport);
    area().startArchiveExport();
    settle();
    area().startArchiveExport();
    settle();
    EXPECT_EQ(requests(), QStringList(postExport));
    m_transport.always(getExport, answer(record("running")));
    held->release(answer(record("running")));
    settle();
    area().startArchiveExport();
    settle();
    EXPECT_EQ(m_transport.count(postExport), 1) << "nor from the running card";
}

TEST_F(ExportRun, startWithTheCardClosed_doesNothing)
{
    area().startArchiveExport();
    settle();
    EXPECT_EQ(m_transport.endpoints(), QStringList());
}

TEST_F(ExportRun, startThatIsRefused_showsTheReasonAndStaysOnConfigure)
{
    open();
    m_transport.expect(getStatus, complaining({}));
    m_transport.expect(postExport, refused());
    m_transport.always(getStatus, complaining(QStringLiteral("\"/srv\" cannot be written.")));
    area().startArchiveExport();
    settle();
    EXPECT_EQ(area().archiveExportCard(), ArchiveExportCard::configure);
    EXPECT_EQ(m_state.archiveMessage(), QStringLiteral("\"/srv\" cannot be written."));
    EXPECT_TRUE(m_state.archiveMessageIsError());
}

TEST_F(ExportRun, startWithoutAnObserver_isGivenUpAfterThirtyAttempts)
{
    open();
    m_transport.always(getStatus, FakeHttpTransport::failure(Fault::ConnectionRefused));
    area().startArchiveExport();
    settle();
    advance(7249ms);
    EXPECT_EQ(m_state.archiveMessage(), std::nullopt);
    advance(1ms);
    EXPECT_EQ(m_transport.count(getStatus), 30);
    EXPECT_EQ(m_state.archiveMessage(), words(Fault::ConnectionRefused));
    EXPECT_EQ(area().archiveExportCard(), ArchiveExportCard::configure);
    EXPECT_EQ(requests(), QStringList());
}

TEST_F(ExportRun, cancel_showsCancelledOnlyAfterTheNextPoll)
{
    run();
    m_transport.expect(postCancel, answer(record("cancelled", 1)));
    area().cancelArchiveExport();
    settle();
    EXPECT_EQ(area().archiveExportStatus(), record("cancelled", 1));
    EXPECT_EQ(area().archiveExportCard(), ArchiveExportCard::running);
    poll(record("cancelled", 1));
    EXPECT_EQ(area().archiveExportCard(), ArchiveExportCard::finished);
}

TEST_F(ExportRun, cancelThatFails_isSaidAndTheExportIsFollowedOn)
{
    run();
    m_transport.expect(postCancel, refused());
    area().cancelArchiveExport();
    settle();
    EXPECT_EQ(m_state.archiveMessage(), words(Fault::BadServerResponse));
    poll(record("running", 6));
    EXPECT_EQ(area().archiveExportStatus(), record("running", 6));
}

TEST_F(ExportRun, cancelThatIsAnsweredAfterTheEnd_leavesTheEndAsItWas)
{
    run();
    const auto held = m_transport.expectHeld(postCancel);
    area().cancelArchiveExport();
    settle();
    poll(record("done", 10));
    ASSERT_EQ(area().archiveExportCard(), ArchiveExportCard::finished);
    held->release(answer(record("idle")));
    settle();
    EXPECT_EQ(area().archiveExportStatus(), record("done", 10));
}

TEST_F(ExportRun, idleDuringPolling_returnsToConfigureAndClearsTheProgress)
{
    run();
    poll(record("idle"));
    EXPECT_EQ(area().archiveExportCard(), ArchiveExportCard::configure);
    EXPECT_EQ(area().archiveExportStatus(), std::nullopt);
    EXPECT_EQ(m_clock.pendingTimerCount(), 0);
}

TEST_F(ExportRun, failedExport_finishesWithTheObserversError)
{
    run();
    ArchiveExportStatus failed = record("failed", 3);
    failed.error = QStringLiteral("The disk is full.");
    poll(failed);
    EXPECT_EQ(area().archiveExportCard(), ArchiveExportCard::finished);
    EXPECT_EQ(area().archiveExportStatus(), failed);
}

TEST_F(ExportRun, pollThatFails_isToldAndAskedAgainASecondLater)
{
    run();
    QStringList failures;
    QObject::connect(&area(), &ExportArea::archiveExportPollFailed, [&failures](int times, const QString &words) {
        failures.append(QStringLiteral("%1: %2").arg(times).arg(words));
    });
    for (int i = 0; i < 2; ++i)
        m_transport.expect(getExport, FakeHttpTransport::failure(Fault::ConnectionRefused));
    advance(2s);
    const QString refusal = words(Fault::ConnectionRefused);
    EXPECT_EQ(failures, QStringList({QStringLiteral("1: ") + refusal, QStringLiteral("2: ") + refusal}));
    EXPECT_EQ(area().archiveExportCard(), ArchiveExportCard::running);
    EXPECT_EQ(area().archiveExportStatus(), record("running", 1));
    poll(record("done", 10));
    EXPECT_EQ(area().archiveExportCard(), ArchiveExportCard::finished);
}

TEST_F(ExportRun, closing_endsThePollingAndReopeningTakesTheExportUpAgain)
{
    run();
    area().closeArchiveExportCard();
    EXPECT_EQ(area().archiveExportCard(), std::nullopt);
    EXPECT_EQ(area().archiveExportEstimate(), std::nullopt);
    EXPECT_EQ(m_clock.pendingTimerCount(), 0);
    advance(5s);
    EXPECT_EQ(requests(), QStringList()) << "neither a poll nor a cancel";
    m_transport.expect(postEstimate, estimated(10, 1000));
    m_transport.always(getExport, answer(record("running", 8)));
    area().openArchiveExportCard();
    settle();
    EXPECT_EQ(area().archiveExportCard(), ArchiveExportCard::running);
    EXPECT_EQ(area().archiveExportStatus(), record("running", 8));
}

TEST_F(ExportRun, closingDuringAPoll_takesTheRequestBack)
{
    run();
    const auto held = m_transport.expectHeld(getExport);
    advance(1s);
    ASSERT_TRUE(held->hasArrived());
    area().closeArchiveExportCard();
    EXPECT_TRUE(held->wasCancelled());
}

} // namespace
