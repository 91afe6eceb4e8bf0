#include "OstrelProgram.h"

#include "base/Files.h"
#include "support/Printers.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>

#include <gmock/gmock.h>

using namespace ostrel;
using testing::HasSubstr;
using testing::Not;

namespace {

/// `ostrel preview` and `ostrel forget` with their real observer, on what a recording has left.
class ForgetEndToEnd : public testing::Test
{
protected:
    ForgetEndToEnd()
    {
        // A keyring that nobody unlocks would be waited for; without a bus there is none.
        m_ostrel.environment().insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"),
                                      QStringLiteral("unix:path=%1").arg(m_ostrel.path(QStringLiteral("no-bus"))));
        // Nobody listens there: what is sent in spite of all is seen in the count of requests.
        m_ostrel.writeSettings(R"("analysisServerUrl": "http://127.0.0.1:9", "model": "eyes")");
    }

    void write(const char *path, const QByteArray &bytes)
    {
        const QString file = m_ostrel.path(QLatin1String(path));
        ASSERT_TRUE(QDir().mkpath(QFileInfo(file).path()));
        ASSERT_TRUE(writeFileAtomically(file, bytes).has_value());
    }
    static QJsonObject frame(int number, qint64 atMs, const char *text)
    {
        return {{QStringLiteral("batch"), 1},
                {QStringLiteral("frame"), number},
                {QStringLiteral("pictureBytes"), 7},
                {QStringLiteral("receivedAtMs"), atMs},
                {QStringLiteral("frameIndex"), number},
                {QStringLiteral("videoMimeType"), QStringLiteral("image/jpeg")},
                {QStringLiteral("text"), QLatin1String(text)},
                {QStringLiteral("displayId"), QStringLiteral("1")},
                {QStringLiteral("displayLabel"), QStringLiteral("Left")},
                {QStringLiteral("displayWidth"), 1920},
                {QStringLiteral("displayHeight"), 1080}};
    }
    /// A chunk of two frames, the second of which shows a password manager.
    void leaveChunk()
    {
        const QJsonObject session{{QStringLiteral("id"), QStringLiteral("session-1")},
                                  {QStringLiteral("startedAtMs"), m_nowMs - 60'000}};
        const QJsonArray frames{frame(0, m_nowMs - 60'000, "Editor"), frame(1, m_nowMs - 50'000, "KeePassXC")};
        const QJsonObject chunk{
            {QStringLiteral("version"), 1},
            {QStringLiteral("id"), 1},
            {QStringLiteral("session"), session},
            {QStringLiteral("stoppedAtMs"), m_nowMs - 40'000},
            {QStringLiteral("through"), QJsonObject{{QStringLiteral("batch"), 1}, {QStringLiteral("frame"), 1}}},
            {QStringLiteral("frames"), frames}};
        write(".ostrel/observer/pending/1/chunk.json", QJsonDocument(chunk).toJson());
        write(".ostrel/observer/pending/1/1-0.jpg", "picture");
        write(".ostrel/observer/pending/1/1-1.jpg", "passwds");
    }
    void leaveJournal()
    {
        const QByteArray day = QDate::currentDate().toString(Qt::ISODate).toLatin1();
        const QByteArray key = QByteArray::number(m_nowMs - 60'000);
        write(("ostrel/journal/" + day + ".md").constData(),
              "# My day\n\n## Session session-1\nstart_time: " + day +
                  "T00:00:00+00:00\n\n- [00:00] [Editor] Viewed: secrets <!-- key:" + key +
                  "-1-0 -->\n\n# Notes\n\n- coffee\n");
    }
    bool isThere(const char *path) const { return QFileInfo::exists(m_ostrel.path(QLatin1String(path))); }

    VirtualDesktop m_desktop{{.size = {640, 400}}};
    OstrelProgram m_ostrel{m_desktop.environment()};
    const qint64 m_nowMs = QDateTime::currentMSecsSinceEpoch();
};

TEST_F(ForgetEndToEnd, previewWithoutAnObserver_showsTheRequestAndSendsNothing)
{
    leaveChunk();
    const auto preview =
        m_ostrel.run({QStringLiteral("preview"), QStringLiteral("--frames"), m_ostrel.path(QStringLiteral("look"))});
    EXPECT_EQ(preview.status, 0) << preview.messages.toStdString();
    EXPECT_THAT(preview.output.toStdString(), HasSubstr("to      127.0.0.1:9 "));
    EXPECT_THAT(preview.output.toStdString(), HasSubstr("left out: the privacy rules exclude it"));
    EXPECT_THAT(preview.output.toStdString(), Not(HasSubstr("KeePassXC")));
    EXPECT_EQ(readFile(m_ostrel.path(QStringLiteral("look/1-0.jpg"))).value_or(QByteArray()), QByteArray("picture"));
    EXPECT_FALSE(isThere("look/1-1.jpg"));
    EXPECT_FALSE(isThere(".ostrel/observer/usage.json")) << "nobody was asked";
    m_ostrel.expectNoObserverStays();
}

TEST_F(ForgetEndToEnd, forgetWithoutAnObserver_removesTheTimeAndNothingElse)
{
    leaveChunk();
    leaveJournal();
    const QStringList words{QStringLiteral("forget"), QStringLiteral("--minutes"), QStringLiteral("5"),
                            QStringLiteral("--yes"), QStringLiteral("--json")};
    const auto report = m_ostrel.json(words);
    EXPECT_EQ(report[QStringLiteral("frames")], 2);
    EXPECT_EQ(report[QStringLiteral("journalLines")], 1);
    EXPECT_TRUE(report[QStringLiteral("archiveWaits")].isNull());
    EXPECT_FALSE(isThere(".ostrel/observer/pending/1/1-0.jpg"));
    EXPECT_EQ(m_ostrel.journal(), QByteArray("# My day\n\n# Notes\n\n- coffee\n"));
    EXPECT_FALSE(isThere(".ostrel/observer/usage.json")) << "nobody was asked";
    m_ostrel.expectNoObserverStays();
    EXPECT_EQ(m_ostrel.json(words)[QStringLiteral("frames")], 0);
}

TEST_F(ForgetEndToEnd, damagedPrivacyRules_arePutIntoWords)
{
    leaveChunk();
    write(".ostrel/privacy.json", "{");
    const auto preview = m_ostrel.run({QStringLiteral("preview")});
    EXPECT_THAT(preview.output.toStdString(), HasSubstr("privacy.json is not JSON"));
    EXPECT_TRUE(isThere(".ostrel/observer/pending/1/1-1.jpg"));
}

} // namespace
