#include "OstrelProgram.h"

#include "support/PortalDesktop.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonObject>

#include <gmock/gmock.h>

#include <thread>

using namespace ostrel;
using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::Not;

namespace {

/// A sway session with the real portal and PipeWire, recorded by a user who has chosen the portal.
class StreamedRecording : public testing::Test
{
protected:
    StreamedRecording()
    {
        m_ostrel.environment().insert(QStringLiteral("OSTREL_CAPTURE"), QStringLiteral("portal"));
        m_ostrel.writeSettings();
        m_ostrel.tellOfCapture();
    }

    TestProcess &startTerminal(const QString &title)
    {
        TestProcess &terminal = m_desktop.screens().startTerminal(QStringLiteral("checklist-editor"), title, "20a040");
        m_desktop.screens().command(
            QStringLiteral("[app_id=checklist-editor] floating enable, resize set 200 px 150 px"));
        return terminal;
    }

    /// Moves the terminal every second, so that the streams have something to tell.
    void moveFor(std::chrono::seconds duration)
    {
        QElapsedTimer time;
        time.start();
        for (int i = 0; !time.hasExpired(qint64(std::chrono::milliseconds(duration).count())); ++i) {
            m_desktop.screens().command(
                QStringLiteral("[app_id=checklist-editor] move position %1 px 40 px").arg(i % 20 * 20));
            std::this_thread::sleep_for(1s); // the program under test runs in real time; nothing is awaited by this
        }
    }

    OstrelProgram::Outcome allow()
    {
        return m_ostrel.run(
            {QStringLiteral("permissions"), QStringLiteral("allow"), QStringLiteral("screenRecording")});
    }

    QJsonObject found(const char *check)
    {
        const auto report =
            QJsonDocument::fromJson(m_ostrel.run({QStringLiteral("doctor"), QStringLiteral("--json")}).output);
        for (const QJsonValue finding : report.array()) {
            if (finding[QStringLiteral("check")].toString() == QLatin1String(check))
                return finding.toObject();
        }
        return {};
    }

    PortalDesktop m_desktop{{{.pixels = {640, 400}, .corner = {0, 0}}}};
    OstrelProgram m_ostrel{m_desktop.environment()};
};

TEST_F(StreamedRecording, forSomeSeconds_writesTheJournalOfWhatWasInFront)
{
    startTerminal(QStringLiteral("Checklist"));
    EXPECT_EQ(allow().status, 0);
    m_ostrel.start({QStringLiteral("record"), QStringLiteral("--seconds"), QStringLiteral("13")});
    m_ostrel.waitForMessage("screen capture stream started");
    moveFor(12s);
    const auto outcome = m_ostrel.waitForEnd();
    const std::string messages = outcome.messages.toStdString();
    EXPECT_EQ(outcome.status, 0) << messages;
    EXPECT_THAT(messages, HasSubstr("size=640x400"));
    EXPECT_THAT(messages, HasSubstr("jpegFailed=0"));
    EXPECT_THAT(messages, Not(HasSubstr("screenshot"))) << "the compositor's own pictures were not used";
    EXPECT_GT(OstrelProgram::framesHandedOver(outcome.messages), 1);
    const std::string journal = m_ostrel.journal().toStdString();
    EXPECT_THAT(journal, HasSubstr("## Session "));
    EXPECT_THAT(journal, HasSubstr("checklist-editor"));
    m_ostrel.expectNoObserverStays();
}

TEST_F(StreamedRecording, doctor_saysWhyThePortalIsUsedAndWhatToAllow)
{
    const std::string session = found("session")[QStringLiteral("detail")].toString().toStdString();
    EXPECT_THAT(session, HasSubstr("desktop portal, because OSTREL_CAPTURE says so"));
    EXPECT_THAT(found("pictures")[QStringLiteral("fix")].toString().toStdString(), HasSubstr("screenRecording"));
    EXPECT_EQ(allow().status, 0);
    const std::string pictures = found("pictures")[QStringLiteral("detail")].toString().toStdString();
    EXPECT_THAT(pictures, HasSubstr("none is taken while one that the privacy rules name"));
}

} // namespace
