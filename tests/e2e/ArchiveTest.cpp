#include "OstrelProgram.h"

#include "base/Files.h"
#include "support/Printers.h"

#include <QDir>
#include <QDirIterator>
#include <QJsonObject>
#include <QProcess>

#include <gmock/gmock.h>

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

    VirtualDesktop m_desktop{{.size = {640, 400}}};
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

} // namespace
