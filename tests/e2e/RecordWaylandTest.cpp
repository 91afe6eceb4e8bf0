#include "OstrelProgram.h"

#include "support/WaylandDesktop.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QThread>

#include <gmock/gmock.h>

using namespace ostrel;
using namespace std::chrono_literals;
using testing::HasSubstr;

namespace {

/// A sway session of two outputs with a small terminal in front.
class WaylandRecording : public testing::Test
{
protected:
    WaylandRecording()
    {
        m_ostrel.writeSettings();
        m_desktop.command(QStringLiteral("focus output HEADLESS-1"));
        m_desktop.startTerminal(m_appId, QStringLiteral("Checklist"), "20a040");
        m_desktop.command(QStringLiteral("[app_id=%1] floating enable, resize set 200 px 150 px").arg(m_appId));
    }

    /// Moves the terminal every second, so that the picture changes.
    void moveFor(std::chrono::seconds duration)
    {
        for (int i = 0; i < duration.count(); ++i) {
            m_desktop.command(QStringLiteral("[app_id=%1] move position %2 px 40 px").arg(m_appId).arg(i * 20));
            QThread::sleep(1); // the program under test runs in real time; nothing is awaited by this
        }
    }

    const QString m_appId = QStringLiteral("checklist-editor");
    WaylandDesktop m_desktop{
        {{.pixels = {640, 400}, .corner = {0, 0}},
         {.pixels = {400, 300}, .corner = {640, 0}, .scale = 2, .transform = QStringLiteral("90")}}};
    OstrelProgram m_ostrel{m_desktop.environment()};
};

TEST_F(WaylandRecording, forSomeSeconds_writesTheJournalOfWhatWasInFront)
{
    m_ostrel.start({QStringLiteral("record"), QStringLiteral("--seconds"), QStringLiteral("13")});
    m_ostrel.waitForMessage("Recording into");
    moveFor(12s);
    const auto outcome = m_ostrel.waitForEnd();
    EXPECT_EQ(outcome.status, 0) << outcome.messages.toStdString();
    EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("jpegFailed=0"));
    const std::string journal = m_ostrel.journal().toStdString();
    EXPECT_THAT(journal, HasSubstr("## Session "));
    EXPECT_THAT(journal, HasSubstr("checklist-editor"));
    m_ostrel.expectNoObserverStays();
}

TEST_F(WaylandRecording, displaysAndContext_areThoseOfSway)
{
    const QJsonArray displays = m_ostrel.json({QStringLiteral("displays"), QStringLiteral("--json")}).array();
    ASSERT_EQ(displays.size(), 2);
    EXPECT_EQ(displays[0][QStringLiteral("width")].toInt(), 640);
    EXPECT_TRUE(displays[0][QStringLiteral("main")].toBool());
    EXPECT_EQ(displays[1][QStringLiteral("width")].toInt(), 300);
    EXPECT_EQ(displays[1][QStringLiteral("bounds")][QStringLiteral("width")].toInt(), 150);
    const auto context = m_ostrel.json({QStringLiteral("context"), QStringLiteral("--json")}).object();
    EXPECT_THAT(context[QStringLiteral("appContextText")].toString().toStdString(), HasSubstr("checklist-editor"));
}

TEST_F(WaylandRecording, doctor_findsTheScreenInOrder)
{
    const QJsonArray report = m_ostrel.json({QStringLiteral("doctor"), QStringLiteral("--json")}).array();
    QStringList found;
    QString windowFacts;
    for (const QJsonValue finding : report) {
        const QString check = finding[QStringLiteral("check")].toString();
        if (check == QStringLiteral("windowFacts"))
            windowFacts = finding[QStringLiteral("detail")].toString();
        if (QStringList{QStringLiteral("session"), QStringLiteral("displays"), QStringLiteral("pictures"),
                        QStringLiteral("frontWindow")}
                .contains(check)) {
            EXPECT_TRUE(finding[QStringLiteral("ok")].toBool()) << qPrintable(check);
            found.append(check);
        }
    }
    EXPECT_EQ(found.size(), 4);
    EXPECT_EQ(windowFacts, QStringLiteral("pointer position: not available on this desktop, because sway does not tell "
                                          "where the pointer is"));
}

} // namespace
