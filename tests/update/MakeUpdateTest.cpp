#include "FileServer.h"
#include "OwnInstallation.h"
#include "PromptClock.h"
#include "base/SerialQueue.h"
#include "support/FakeUserDefaults.h"
#include "support/Printers.h"
#include "support/RunTask.h"
#include "update/FeedUpdater.h"

#include <QDateTime>

#include <gmock/gmock.h>

using namespace ostrel;
using testing::HasSubstr;

namespace {

const QString newVersion = QStringLiteral("0.2.0");

/// The tool of those who publish, run for real, and a program that is updated with what it has made.
class MakeUpdate : public testing::Test
{
protected:
    struct Outcome {
        int status = -1;
        QByteArray output;
        QByteArray messages;
    };

    MakeUpdate()
    {
        EXPECT_TRUE(fillWithProgram(path(QStringLiteral("built")), newVersion).has_value());
        EXPECT_TRUE(QDir(m_folder.path()).mkdir(QStringLiteral("www")));
    }

    QString path(const QString &name) const { return m_folder.filePath(name); }
    QString feedFile() const { return path(QStringLiteral("www/feed")); }

    Outcome make(const QStringList &arguments) const
    {
        QProcess process;
        process.start(QStringLiteral(OSTREL_FIXTURES "/../../packaging/make-update"), arguments);
        EXPECT_TRUE(process.waitForFinished(60'000)) << process.errorString().toStdString();
        return {.status = process.exitCode(),
                .output = process.readAllStandardOutput(),
                .messages = process.readAllStandardError()};
    }
    QString makeKey(const QString &name = QStringLiteral("key")) const
    {
        const Outcome made = make({QStringLiteral("key"), path(name)});
        EXPECT_EQ(made.status, 0) << made.messages.toStdString();
        return QString::fromUtf8(made.output).trimmed();
    }
    Outcome onFeed(const QStringList &words, const QString &key = QStringLiteral("key")) const
    {
        return make(words + QStringList{QStringLiteral("--key"), path(key), QStringLiteral("--feed"), feedFile()});
    }
    Outcome release() const
    {
        return onFeed({QStringLiteral("release"), QStringLiteral("--prefix"), path(QStringLiteral("built")),
                       QStringLiteral("--notes"), QStringLiteral("Faster.")});
    }
    Result<Feed> feed(const QString &publicKey) const
    {
        return readFeed(readFile(feedFile()).value(), UpdateKey::parse(publicKey).value(),
                        QUrl(QStringLiteral("https://example.com/feed")));
    }

    QTemporaryDir m_folder;
};

class NoDelegate final : public UpdaterDelegate
{
public:
    bool willInstallUpdateOnQuit(const Version & /*version*/, ImmediateInstallationBlock install) override
    {
        install();
        return true;
    }
};

TEST_F(MakeUpdate, release_isFoundVerifiedAndInstalled)
{
    const QString key = makeKey();
    const Outcome released = release();
    ASSERT_EQ(released.status, 0) << released.messages.toStdString();
    FileServer server;
    for (const QString &name : QDir(path(QStringLiteral("www"))).entryList(QDir::Files))
        server.files[u'/' + name] = {.content = readFile(path(QStringLiteral("www/") + name)).value()};
    const OwnInstallation own;
    PromptClock clock;
    clock.setNowMs(QDateTime::currentMSecsSinceEpoch());
    FakeUserDefaults defaults;
    SerialQueue worker(QStringLiteral("test.update"));
    NoDelegate delegate;
    bool relaunched = false;
    FeedUpdater updater({.clock = clock,
                         .defaults = defaults,
                         .worker = worker,
                         .program = {.bundle = {.prefix = {},
                                                .feedUrl = server.url(QStringLiteral("/feed")).toString(),
                                                .publicKey = key,
                                                .shortVersion = QStringLiteral("0.1.0")},
                                     .installation = own.find()},
                         .relaunch = [&relaunched](const QString &) { relaunched = true; }},
                        delegate);
    updater.checkForUpdates();
    ASSERT_TRUE(pumpUntil([&] { return relaunched; })) << updateWords(updater.state()).toStdString();
    EXPECT_EQ(updater.state().notes, QStringLiteral("Faster."));
    EXPECT_EQ(own.startedVersion(), newVersion);
}

TEST_F(MakeUpdate, keyFile_isTheOwnersAloneAndNeverOverwritten)
{
    makeKey();
    EXPECT_EQ(QFileInfo(path(QStringLiteral("key"))).permissions() & 0x0fff, 0x0600);
    EXPECT_NE(make({QStringLiteral("key"), path(QStringLiteral("key"))}).status, 0);
}

TEST_F(MakeUpdate, renewedFeed_hasTheNextNumberAndTheSameReleases)
{
    const QString key = makeKey();
    ASSERT_EQ(release().status, 0);
    ASSERT_EQ(onFeed({QStringLiteral("renew"), QStringLiteral("--days"), QStringLiteral("10")}).status, 0);
    const auto renewed = feed(key);
    ASSERT_TRUE(renewed.has_value()) << renewed.error().localizedDescription.toStdString();
    EXPECT_EQ(renewed->sequence, 2);
    EXPECT_EQ(renewed->releases.size(), 1);
    constexpr qint64 dayMs = 86'400'000;
    EXPECT_NEAR(double(renewed->expiresMs - QDateTime::currentMSecsSinceEpoch()), 10.0 * dayMs, dayMs / 24.0);
}

TEST_F(MakeUpdate, withdrawnVersion_isNoLongerAnnounced)
{
    const QString key = makeKey();
    ASSERT_EQ(release().status, 0);
    ASSERT_EQ(onFeed({QStringLiteral("renew"), QStringLiteral("--without"), newVersion}).status, 0);
    EXPECT_EQ(feed(key).value().releases.size(), 0);
}

TEST_F(MakeUpdate, sameContent_givesTheSameArchive)
{
    makeKey();
    ASSERT_EQ(release().status, 0);
    const Outcome again = release();
    EXPECT_EQ(again.status, 0) << again.messages.toStdString();
}

TEST_F(MakeUpdate, publishedVersionWithOtherContent_isRefused)
{
    makeKey();
    ASSERT_EQ(release().status, 0);
    ASSERT_TRUE(writeFileAtomically(path(QStringLiteral("built/share/more")), "more").has_value());
    const Outcome again = release();
    EXPECT_EQ(again.status, 2);
    EXPECT_THAT(again.messages.toStdString(), HasSubstr("never changes"));
}

TEST_F(MakeUpdate, linkInTheProgram_isRefusedBeforeItIsPublished)
{
    makeKey();
    ASSERT_TRUE(QFile::link(QStringLiteral("ostrel"), path(QStringLiteral("built/bin/other"))));
    const Outcome outcome = release();
    EXPECT_EQ(outcome.status, 2);
    EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("neither a file nor a folder"));
    EXPECT_FALSE(QFileInfo::exists(feedFile()));
}

TEST_F(MakeUpdate, versionThatProgramsDoNotTake_isRefusedBeforeItIsPublished)
{
    makeKey();
    for (const QString &version : {QStringLiteral("1.0.0-01"), QStringLiteral("1.0.0-a..b"), QStringLiteral("1.0.0-"),
                                   QStringLiteral("1.0"), QStringLiteral("1.0.0-") + QString(64, u'a')}) {
        ASSERT_FALSE(Version::parse(version).has_value()) << version.toStdString();
        ASSERT_TRUE(fillWithProgram(path(QStringLiteral("built")), version).has_value());
        const Outcome outcome = release();
        EXPECT_EQ(outcome.status, 2) << version.toStdString();
        EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("holds no version"));
        EXPECT_FALSE(QFileInfo::exists(feedFile()));
    }
    ASSERT_TRUE(fillWithProgram(path(QStringLiteral("built")), QStringLiteral("1.0.0-rc.1")).has_value());
    EXPECT_EQ(release().status, 0);
}

TEST_F(MakeUpdate, feedOfAnotherKey_isNotTouched)
{
    const QString key = makeKey();
    ASSERT_EQ(release().status, 0);
    makeKey(QStringLiteral("other"));
    const Outcome outcome = onFeed({QStringLiteral("renew")}, QStringLiteral("other"));
    EXPECT_EQ(outcome.status, 2);
    EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("no feed that this key has signed"));
    EXPECT_EQ(feed(key).value().sequence, 1);
}

TEST_F(MakeUpdate, wrongWords_areToldHowItIsUsed)
{
    const Outcome outcome = make({QStringLiteral("publish")});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("Usage:"));
}

} // namespace
