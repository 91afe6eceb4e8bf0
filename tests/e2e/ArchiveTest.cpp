#include "OstrelProgram.h"

#include "base/Files.h"
#include "support/Printers.h"

#include <QDir>
#include <QDirIterator>
#include <QJsonObject>
#include <QProcess>
#include <QThread>

#include <gmock/gmock.h>

#include <algorithm>

using namespace ostrel;
using testing::HasSubstr;

namespace {

QStringList words(const char *line)
{
    return QStringLiteral("archive %1").arg(QString::fromLatin1(line)).split(u' ');
}

/// `ostrel archive` with its real observer and a folder as the archive's place.
class ArchiveEndToEnd : public testing::Test
{
protected:
    ArchiveEndToEnd()
    {
        // A keyring that nobody unlocks would be waited for; without a bus there is none.
        m_ostrel.environment().insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"),
                                      QStringLiteral("unix:path=%1").arg(m_ostrel.path(QStringLiteral("no-bus"))));
        m_ostrel.writeSettings();
        EXPECT_TRUE(QDir().mkpath(m_ostrel.path(QStringLiteral("nas"))));
        EXPECT_TRUE(writeFileAtomically(m_ostrel.path(QStringLiteral(".ostrel/observer/archive/target.json")),
                                        R"({"kind": "folder", "lossless": true, "path": ")" +
                                            m_ostrel.path(QStringLiteral("nas")).toUtf8() + "\"}")
                        .has_value());
    }

    /// Turns the archive on as its user would. @return the key
    QByteArray enable()
    {
        QProcess process;
        process.setProcessEnvironment(m_ostrel.environment());
        process.start(OstrelProgram::file(), words("enable"));
        while (!process.canReadLine() && process.waitForReadyRead(60'000))
            continue;
        const QByteArray key = process.readLine().trimmed();
        process.write(key.right(6) + '\n');
        EXPECT_TRUE(process.waitForFinished(60'000));
        EXPECT_EQ(process.exitCode(), 0) << process.readAllStandardError().toStdString();
        EXPECT_EQ(process.readAllStandardOutput(), QByteArray()) << "the key comes once";
        return key;
    }
    bool homeHolds(const QByteArray &text) const
    {
        QDirIterator files(m_ostrel.home(), QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
        while (files.hasNext()) {
            if (readFile(files.next()).value_or(QByteArray()).contains(text))
                return true;
        }
        return false;
    }

    /// Records some seconds of typing, from start to stop.
    void recordTyping(int words)
    {
        m_ostrel.start({QStringLiteral("record")});
        m_ostrel.waitForMessage("Recording into");
        for (int i = 0; i < words; ++i) {
            m_desktop.type(QStringLiteral("word "));
            QThread::sleep(1); // the program under test runs in real time; nothing is awaited by this
        }
        m_ostrel.terminate();
        ASSERT_EQ(m_ostrel.waitForEnd().status, 0);
    }
    /// The pictures that the observer kept of those that it has analysed, in no order.
    QList<QByteArray> recordedPictures() const { return filesBelow(m_ostrel.path(QStringLiteral("raw"))); }
    /// The pictures in all clips below a folder, bit for bit, in no order.
    QList<QByteArray> picturesInClips(const QString &folder)
    {
        QDirIterator clips(folder, {QStringLiteral("*.mkv")}, QDir::Files, QDirIterator::Subdirectories);
        const QString pictures = m_ostrel.path(QStringLiteral("pictures"));
        for (int number = 0; clips.hasNext(); ++number) {
            EXPECT_TRUE(QDir().mkpath(pictures));
            m_desktop.run(QStringLiteral("ffmpeg"),
                          {QStringLiteral("-loglevel"), QStringLiteral("error"), QStringLiteral("-i"), clips.next(),
                           QStringLiteral("-map"), QStringLiteral("0:v"), QStringLiteral("-c"), QStringLiteral("copy"),
                           QStringLiteral("-f"), QStringLiteral("image2"),
                           QStringLiteral("%1/%2-%05d.jpg").arg(pictures).arg(number)});
        }
        return filesBelow(pictures);
    }
    /// The files in which the head of a JPEG stands anywhere.
    static QStringList filesWithPicturesIn(const QString &folder)
    {
        QStringList found;
        QDirIterator files(folder, QDir::Files, QDirIterator::Subdirectories);
        while (files.hasNext()) {
            if (readFile(files.next()).value_or(QByteArray()).contains("JFIF"))
                found.append(files.filePath());
        }
        return found;
    }
    static QList<QByteArray> filesBelow(const QString &folder)
    {
        QList<QByteArray> contents;
        QDirIterator files(folder, {QStringLiteral("*.jpg")}, QDir::Files, QDirIterator::Subdirectories);
        while (files.hasNext())
            contents.append(readFile(files.next()).value_or(QByteArray()));
        std::ranges::sort(contents);
        return contents;
    }

    VirtualDesktop m_desktop{{.size = {640, 400}, .windowManager = true}};
    OstrelProgram m_ostrel{m_desktop.environment()};
};

TEST_F(ArchiveEndToEnd, fromEnableToExport_withAnObserverOfItsOwnAndWithTheRecorders)
{
    const auto before = m_ostrel.run(words("status"));
    EXPECT_EQ(before.status, 1);
    EXPECT_THAT(before.messages.toStdString(), HasSubstr("The observer is not running"));

    const QByteArray key = enable();
    EXPECT_TRUE(key.startsWith("ostrel-vault_")) << key.toStdString();
    EXPECT_FALSE(homeHolds(key)) << "it is kept nowhere";
    m_ostrel.expectNoObserverStays();

    m_ostrel.start({QStringLiteral("record")});
    m_ostrel.waitForMessage("Recording into");
    const auto status = m_ostrel.json(words("status")).object();
    EXPECT_EQ(status.value(QStringLiteral("archiveEnabled")), true);
    EXPECT_EQ(status.value(QStringLiteral("export")).toObject().value(QStringLiteral("state")), QStringLiteral("idle"));
    EXPECT_EQ(m_ostrel.run(words("disable")).messages, QByteArray("Archive uploads paused.\n"));
    const auto resumed = m_ostrel.run(words("enable"));
    EXPECT_EQ(resumed.output, QByteArray()) << "a paused one has its key already";
    EXPECT_THAT(resumed.messages.toStdString(), HasSubstr("Archive uploads resumed."));
    EXPECT_EQ(m_ostrel.observers().size(), 1) << "all of them used the recorder's";
    m_ostrel.terminate();
    EXPECT_EQ(m_ostrel.waitForEnd().status, 0);

    const auto exported =
        m_ostrel.run(words("export --json --into") + QStringList(m_ostrel.path(QStringLiteral("out"))));
    EXPECT_EQ(exported.status, 0) << exported.messages.toStdString();
    EXPECT_EQ(QJsonDocument::fromJson(exported.output)[QStringLiteral("state")], QStringLiteral("done"));
    m_ostrel.expectNoObserverStays();
}

TEST_F(ArchiveEndToEnd, recordedFootage_comesOutOfTheExportPictureForPicture)
{
    m_ostrel.writeSettings(OstrelProgram::keepAnalysed);
    const QString place = m_ostrel.path(QStringLiteral("footage"));
    ASSERT_TRUE(QDir().mkpath(place));
    const auto placed = m_ostrel.run(words("target folder --lossless true") + QStringList(place));
    ASSERT_EQ(placed.status, 0) << placed.messages.toStdString();
    enable();
    m_desktop.startTerminal(QStringLiteral("Footage"));
    recordTyping(6);
    const auto recorded = recordedPictures();
    ASSERT_GE(recorded.size(), 3) << "what was typed has been seen";

    const QString out = m_ostrel.path(QStringLiteral("out"));
    const auto exported = m_ostrel.run(words("export --json --into") + QStringList(out));
    ASSERT_EQ(exported.status, 0) << exported.messages.toStdString();
    EXPECT_GE(QJsonDocument::fromJson(exported.output)[QStringLiteral("exported")].toInt(), 1);
    EXPECT_EQ(picturesInClips(out), recorded);
    EXPECT_FALSE(QDir(place).isEmpty());
    EXPECT_EQ(filesWithPicturesIn(place), QStringList()) << "it lies there encrypted";
    m_ostrel.expectNoObserverStays();
}

TEST_F(ArchiveEndToEnd, anotherPlace_isAskedForAndTakenByTheObserverOrRefusedInItsWords)
{
    EXPECT_THAT(m_ostrel.run(words("target")).messages.toStdString(), HasSubstr("The observer is not running"));
    enable();
    const QString other = m_ostrel.path(QStringLiteral("other"));
    const auto asked = m_ostrel.run(words("target folder") + QStringList(other));
    EXPECT_EQ(asked.status, 1);
    EXPECT_THAT(asked.messages.toStdString(), HasSubstr("stays there"));
    const auto missing = m_ostrel.run(words("target --yes folder") + QStringList(other));
    EXPECT_EQ(missing.status, 1);
    EXPECT_THAT(missing.messages.toStdString(), HasSubstr(other.toStdString())) << "the observer says which";
    ASSERT_TRUE(QDir().mkpath(other));
    const auto taken = m_ostrel.json(words("target --yes --json folder") + QStringList(other)).object();
    EXPECT_EQ(taken.value(QStringLiteral("path")), other);
    EXPECT_EQ(taken.value(QStringLiteral("lossless")), true) << "stays as it is";
    EXPECT_FALSE(QDir(other).isEmpty()) << "the vault is there, so that the key opens it";
    m_ostrel.expectNoObserverStays();
}

} // namespace
