#include "CommandFixture.h"
#include "base/Files.h"
#include "support/HttpTestServer.h"
#include "support/Printers.h"
#include "support/TarArchive.h"
#include "support/UpdateFeed.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QJsonObject>

#include <gmock/gmock.h>

using namespace ostrel;
using testing::HasSubstr;

namespace {

const QStringList check{QStringLiteral("update"), QStringLiteral("check")};
const QStringList install{QStringLiteral("update"), QStringLiteral("install")};
const QStringList rollBack{QStringLiteral("update"), QStringLiteral("rollback")};

/// The command over a feed of the test's own.
class UpdateCommand : public CommandFixture
{
protected:
    UpdateCommand()
    {
        m_bundle = {.prefix = prefix(),
                    .feedUrl = m_server.url(QStringLiteral("/feed")).toString(),
                    .publicKey = m_key.publicText(),
                    .shortVersion = QStringLiteral("0.1.0")};
        publish(QStringLiteral("0.2.0"));
    }

    QString prefix() const { return m_home.path(QStringLiteral("opt/versions/0.1.0")); }
    void publish(const QString &version)
    {
        m_archive = programArchive(version);
        const QString inAYear = QDateTime::currentDateTimeUtc().addYears(1).toString(Qt::ISODate);
        m_feed = signedFeed(
            m_key, feedDocument({announcement(m_key, version, m_archive, QStringLiteral("archive"))}, 1, inAYear));
    }
    /// Makes the program one of the user's own.
    void own()
    {
        ASSERT_TRUE(QDir().mkpath(prefix()));
        ASSERT_TRUE(QFile::link(QStringLiteral("versions/0.1.0"), m_home.path(QStringLiteral("opt/current"))));
    }
    QString currentLink() const { return QFile::symLinkTarget(m_home.path(QStringLiteral("opt/current"))); }

    CommandResult run(const QStringList &words)
    {
        Platform platform = m_platform;
        platform.program = [this] {
            return InstalledProgram{.bundle = m_bundle,
                                    .installation = Installation::around(prefix(), std::make_shared<SystemDisk>())};
        };
        return runCommandLine(QStringList(QStringLiteral("ostrel")) + words, platform);
    }

    SigningKey m_key;
    QByteArray m_archive;
    QByteArray m_feed;
    HttpTestServer m_server{[this](const HttpTestServer::Request &request, QTcpSocket &socket) {
        socket.write(HttpTestServer::response(200, request.line.contains("/feed ") ? m_feed : m_archive));
    }};
    BundleInfo m_bundle;
};

TEST_F(UpdateCommand, newerVersionForAPackage_isToldWithWhoInstallsIt)
{
    const CommandResult result = run(check);
    EXPECT_EQ(result.status, 0) << result.messages.toStdString();
    EXPECT_EQ(result.output,
              QStringLiteral("Version 0.2.0 is available. Install it the way this version was installed, for instance "
                             "with the package manager. This is version 0.1.0.\nWhat is new: What is new.\n"));
    EXPECT_EQ(result.messages, QString());
}

TEST_F(UpdateCommand, newerVersionForTheUsersOwn_isToldWithTheCommand)
{
    own();
    EXPECT_EQ(run(check).output, QStringLiteral("Version 0.2.0 is available. This is version 0.1.0.\nWhat is new: What "
                                                "is new.\n`ostrel update install` installs it.\n"));
}

TEST_F(UpdateCommand, sameVersion_isTheNewest)
{
    publish(QStringLiteral("0.1.0"));
    const CommandResult result = run(check);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, QStringLiteral("Version 0.1.0 is the newest.\n"));
}

TEST_F(UpdateCommand, json_hasTheDocumentedShape)
{
    const auto json = [this] {
        return QJsonDocument::fromJson(run(check + QStringList(QStringLiteral("--json"))).output.toUtf8()).object();
    };
    EXPECT_EQ(json(), QJsonObject({{QStringLiteral("version"), QStringLiteral("0.1.0")},
                                   {QStringLiteral("newerVersion"), QStringLiteral("0.2.0")},
                                   {QStringLiteral("notes"), QStringLiteral("What is new.")},
                                   {QStringLiteral("installsItself"), false}}));
    publish(QStringLiteral("0.1.0"));
    EXPECT_EQ(json(), QJsonObject({{QStringLiteral("version"), QStringLiteral("0.1.0")},
                                   {QStringLiteral("newerVersion"), QJsonValue()},
                                   {QStringLiteral("notes"), QJsonValue()},
                                   {QStringLiteral("installsItself"), false}}));
}

TEST_F(UpdateCommand, buildWithoutAFeed_saysSoAndAsksNobody)
{
    m_bundle.feedUrl.reset();
    const CommandResult result = run(check);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, QString());
    EXPECT_EQ(result.messages,
              QStringLiteral("ostrel: This build does not look for updates: it has no update feed. New "
                             "versions come the way this one came.\n"));
    EXPECT_EQ(m_server.requests().size(), 0);
}

TEST_F(UpdateCommand, feedThatIsNotTrusted_isStatus1WithTheReason)
{
    m_feed = "<html>log in</html>";
    const CommandResult result = run(check);
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.messages.toStdString(), HasSubstr("is not signed"));
}

TEST_F(UpdateCommand, notesThatATerminalWouldObey_areMadeHarmless)
{
    QJsonObject release = announcement(m_key, QStringLiteral("0.2.0"), m_archive, QStringLiteral("archive"));
    release[QStringLiteral("notes")] = QStringLiteral("\u001b[2Jnew");
    m_feed = signedFeed(m_key, feedDocument({release}, 1, QStringLiteral("2999-01-01T00:00:00Z")));
    EXPECT_FALSE(run(check).output.contains(u'\u001b'));
}

TEST_F(UpdateCommand, install_switchesToTheNewVersionAndRollbackGoesBack)
{
    own();
    const CommandResult installed = run(install);
    EXPECT_EQ(installed.status, 0) << installed.messages.toStdString();
    EXPECT_EQ(installed.output, QStringLiteral("Version 0.2.0 is installed. It runs from the next start on; `ostrel "
                                               "update rollback` goes back.\n"));
    EXPECT_EQ(currentLink(), m_home.path(QStringLiteral("opt/versions/0.2.0")));
    EXPECT_EQ(run(install).output, QStringLiteral("There is no newer version.\n"));
    const CommandResult rolledBack = run(rollBack);
    EXPECT_EQ(rolledBack.output, QStringLiteral("Version 0.1.0 runs from the next start on.\n"));
    EXPECT_EQ(currentLink(), prefix());
}

TEST_F(UpdateCommand, installationOfThePackageManager_isNotChanged)
{
    for (const QStringList &words : {install, rollBack}) {
        const CommandResult result = run(words);
        EXPECT_EQ(result.status, 1);
        EXPECT_THAT(result.messages.toStdString(), HasSubstr("does not update itself"));
    }
    EXPECT_EQ(m_server.requests().size(), 0);
}

TEST_F(UpdateCommand, installThatFails_isStatus1WithTheReason)
{
    own();
    m_archive[40] = char(m_archive[40] ^ 1);
    const CommandResult result = run(install);
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.messages.toStdString(), HasSubstr("is not the new version that was announced"));
    EXPECT_EQ(currentLink(), prefix());
}

TEST_F(UpdateCommand, wrongWords_areAUsageError)
{
    EXPECT_EQ(run({QStringLiteral("update")}).status, 2);
    EXPECT_EQ(run({QStringLiteral("update"), QStringLiteral("undo")}).status, 2);
    EXPECT_EQ(run(install + QStringList(QStringLiteral("--json"))).status, 2);
}

} // namespace
