#include "TrayStory.h"

#include <QThread>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

class TrayRecording : public TrayStory
{};

TEST_F(TrayRecording, firstStart_asksForWhatIsMissingAndRemembersThatItWasDeclined)
{
    open();
    EXPECT_TRUE(panel().shows("Permissions"));
    EXPECT_TRUE(panel().shows("Screen Recording, granted"));
    EXPECT_TRUE(panel().shows("File Access, granted"));
    EXPECT_TRUE(panel().shows("Accessibility, not granted"));
    EXPECT_FALSE(panel().shows("Start recording"));
    panel().press("Continue");
    panel().waitFor("Start recording");
    end();
    open();
    EXPECT_TRUE(panel().shows("Start recording"));
    end();
}

TEST_F(TrayRecording, allow_turnsTheSwitchOnAndLeadsToTheRecorder)
{
    open().press("Allow");
    panel().waitFor("Start recording");
    end();
}

TEST_F(TrayRecording, whatIsDone_standsInTheJournalWhileItIsRecorded)
{
    allowAccessibility();
    m_tray.desktop().startTerminal(QStringLiteral("Release checklist"));
    open();
    EXPECT_FALSE(m_tray.iconHasRecordingDot());
    panel().press("Start recording");
    panel().waitFor("Stop recording");
    waitUntil(QStringLiteral("the dot in the icon"), patience, [this] { return m_tray.iconHasRecordingDot(); });
    key("Escape");
    waitUntilPanelIsClosed();

    m_tray.desktop().activate(m_tray.desktop().waitForWindow(QStringLiteral("Release checklist")));
    waitUntil(QStringLiteral("a line in the journal"), 60s, [this] {
        m_tray.desktop().type(QStringLiteral("word "));
        QThread::msleep(250); // as people type; nothing is awaited by this
        return m_ostrel.journal().contains("Release checklist");
    });
    open().press("Journal");
    panel().waitFor(QStringLiteral("*Release checklist*"), QStringLiteral("list item"));
    panel().press("Back");
    panel().press("Stop recording");
    panel().waitFor("Start recording");
    waitUntil(QStringLiteral("the dot to go"), patience, [this] { return !m_tray.iconHasRecordingDot(); });
    end();
    EXPECT_EQ(m_ostrel.spooled(), QStringList());
}

} // namespace
