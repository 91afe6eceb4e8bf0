#include "PopoverFixture.h"

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

class RecorderScreen : public PopoverFixture
{
protected:
    void complain(const QString &error)
    {
        ObserverStatus status;
        status.lastError = error;
        m_observer.always(getStatus, FakeHttpTransport::answer(status.toJson()));
        advance(2s);
    }
};

TEST_F(RecorderScreen, atRest_offersToRecordAndSaysWhereTheJournalGoes)
{
    m_settings.outputDirectory = QStringLiteral("~/ostrel/journal");
    open();
    EXPECT_TRUE(showsButton("Start recording"));
    EXPECT_TRUE(shows("~/ostrel/journal"));
    EXPECT_FALSE(shows("BYOK inference active"));
    EXPECT_TRUE(showsButton("Journal") && showsButton("Settings") && showsButton("Quit Tamsk Ostrel"));
    EXPECT_EQ(screen().nameless(), QStringList());
}

TEST_F(RecorderScreen, return_startsAndStopsARecording)
{
    open();
    EXPECT_EQ(screen().focused(), QStringLiteral("Start recording"));
    m_observer.expect(postStart, statusAnswer(true));
    key(Qt::Key_Return);
    m_observer.always(getStatus, statusAnswer(true));
    EXPECT_TRUE(m_popover->isRecording());
    EXPECT_TRUE(showsButton("Stop recording"));
    m_observer.expect(postStop, statusAnswer(false));
    m_observer.expect(postFrames, statusAnswer(true));
    m_observer.always(getStatus, statusAnswer(false));
    key(Qt::Key_Space);
    EXPECT_TRUE(showsButton("Start recording"));
}

TEST_F(RecorderScreen, whileAStartIsUnderWay_itShows)
{
    open();
    EXPECT_FALSE(m_popover->isWaiting());
    const auto start = m_observer.expectHeld(postStart);
    click("Start recording");
    EXPECT_TRUE(m_popover->isWaiting());
    start->release(statusAnswer(true));
    m_observer.always(getStatus, statusAnswer(true));
    settle();
    EXPECT_FALSE(m_popover->isWaiting());
    EXPECT_TRUE(m_popover->isRecording());
}

TEST_F(RecorderScreen, anError_standsInThePlaceOfThePath)
{
    open();
    complain(QStringLiteral("The disk is full."));
    EXPECT_TRUE(shows("The disk is full."));
    EXPECT_FALSE(screen().has(m_settings.outputDirectory));
    EXPECT_EQ(screen().item(QStringLiteral("The disk is full."))->property("color").value<QColor>(),
              QColor(QStringLiteral("#b3261e")));
}

TEST_F(RecorderScreen, withAnOwnKey_wearsItsBadge)
{
    m_settings.inferenceProvider = QStringLiteral("google_vertex_ai");
    open();
    EXPECT_TRUE(shows("BYOK inference active"));
}

TEST_F(RecorderScreen, quit_endsTheProgram)
{
    open();
    m_observer.always(postStop, statusAnswer(false));
    press("Quit Tamsk Ostrel");
    advance(1s);
    EXPECT_EQ(m_events, QStringList(terminated));
}

TEST_F(RecorderScreen, shown_readsTheJournalOnce)
{
    writeDay(QStringLiteral("2023-11-14"), entries(2));
    open();
    EXPECT_EQ(m_popover->journal()->count(), 4);
    writeDay(QStringLiteral("2023-11-14"), entries(3));
    advance(10s);
    EXPECT_EQ(m_popover->journal()->count(), 4);
}

} // namespace
