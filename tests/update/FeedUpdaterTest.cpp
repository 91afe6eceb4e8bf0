#include "update/FeedUpdater.h"
#include "FileServer.h"
#include "OwnInstallation.h"
#include "PromptClock.h"
#include "base/SerialQueue.h"
#include "support/FakeUserDefaults.h"
#include "support/LogRecorder.h"
#include "support/Printers.h"
#include "support/RunTask.h"
#include "support/UpdateFeed.h"
#include "update/UpdateFault.h"

#include <gmock/gmock.h>

using namespace ostrel;
using testing::ElementsAre;

namespace {

using Phase = UpdateState::Phase;

const QString oldVersion = QStringLiteral("0.1.0");
const QString newVersion = QStringLiteral("0.2.0");
const QString archivePath = QStringLiteral("/archive");

/// Takes the block, as the coordinator does, or leaves the installation to the next quit.
class TakingDelegate final : public UpdaterDelegate
{
public:
    bool takesOver = true;
    QStringList versions;
    ImmediateInstallationBlock install;

    bool willInstallUpdateOnQuit(const Version &version, ImmediateInstallationBlock block) override
    {
        versions.append(version.text());
        install = std::move(block);
        return takesOver;
    }
};

class FeedUpdaterTest : public testing::Test
{
protected:
    FeedUpdaterTest() { publish(newVersion, programArchive(newVersion)); }

    void publish(const QString &version, const QByteArray &archive, qint64 sequence = 1)
    {
        m_server.files[archivePath] = {.content = archive};
        publishFeed(feedDocument({announcement(m_key, version, archive, QStringLiteral("archive"))}, sequence));
    }
    void publishFeed(const QJsonObject &document)
    {
        m_server.files[QStringLiteral("/feed")] = {.content = signedFeed(m_key, document)};
    }
    BundleInfo bundle() const
    {
        return {.prefix = m_own.path(QStringLiteral("versions/0.1.0")),
                .feedUrl = m_server.url(QStringLiteral("/feed")).toString(),
                .publicKey = m_key.publicText(),
                .shortVersion = oldVersion};
    }
    void make(const BundleInfo &bundle, const std::optional<Installation> &installation)
    {
        m_updater = std::make_unique<FeedUpdater>(
            FeedUpdater::Dependencies{.clock = m_clock,
                                      .defaults = m_defaults,
                                      .worker = m_worker,
                                      .program = {.bundle = bundle, .installation = installation},
                                      .relaunch =
                                          [this](const QString &path) {
                                              ++m_relaunches;
                                              m_relaunched = path;
                                          }},
            m_delegate);
        QObject::connect(m_updater.get(), &UpdateController::stateChanged, m_updater.get(), [this] {
            if (m_phases.isEmpty() || m_phases.last() != phase())
                m_phases.append(phase());
        });
    }
    void make() { make(bundle(), m_own.find()); }
    Phase phase() const { return m_updater->state().phase; }
    bool isOver() const
    {
        return phase() == Phase::UpToDate || phase() == Phase::Found || phase() == Phase::Ready ||
               phase() == Phase::Failed;
    }
    /// As if the user had asked.
    void check()
    {
        m_updater->checkForUpdates();
        ASSERT_TRUE(pumpUntil([this] { return isOver(); }));
    }
    void install()
    {
        m_delegate.install();
        ASSERT_TRUE(pumpUntil([this] { return m_relaunches > 0; }));
    }
    void expectFailure(UpdateFault fault)
    {
        check();
        ASSERT_EQ(phase(), Phase::Failed);
        EXPECT_TRUE(isUpdateFault(*m_updater->state().error, fault)) << words().toStdString();
        EXPECT_EQ(words(), m_updater->state().error->localizedDescription);
        EXPECT_EQ(m_delegate.versions, QStringList());
        EXPECT_EQ(m_own.startedVersion(), oldVersion);
    }
    QString words() const { return updateWords(m_updater->state()); }

    LogRecorder m_log{"com.tamsk.ostrel.Update"};
    SigningKey m_key;
    OwnInstallation m_own;
    FileServer m_server;
    PromptClock m_clock;
    FakeUserDefaults m_defaults;
    TakingDelegate m_delegate;
    int m_relaunches = 0;
    QString m_relaunched;
    QList<Phase> m_phases;
    SerialQueue m_worker{QStringLiteral("test.update")};
    std::unique_ptr<FeedUpdater> m_updater;
};

TEST_F(FeedUpdaterTest, newerVersion_isStagedOfferedAndInstalledByTheBlock)
{
    make();
    check();
    EXPECT_THAT(m_phases, ElementsAre(Phase::Checking, Phase::Downloading, Phase::Unpacking, Phase::Ready));
    EXPECT_EQ(m_updater->state().version, newVersion);
    EXPECT_EQ(m_updater->state().notes, QStringLiteral("What is new."));
    EXPECT_EQ(m_delegate.versions, QStringList(newVersion));
    EXPECT_EQ(m_own.startedVersion(), oldVersion) << "not before the block";
    install();
    EXPECT_EQ(m_relaunched, m_own.path(QStringLiteral("current/bin/ostrel")));
    EXPECT_EQ(m_own.startedVersion(), newVersion);
}

TEST_F(FeedUpdaterTest, block_mayBeCalledTwiceAndAfterTheUpdaterHasGone)
{
    make();
    check();
    install();
    m_delegate.install();
    EXPECT_EQ(m_relaunches, 1);
    m_updater.reset();
    m_delegate.install();
    EXPECT_EQ(m_relaunches, 1);
}

TEST_F(FeedUpdaterTest, delegateThatDoesNotTakeOver_leavesItToTheQuit)
{
    m_delegate.takesOver = false;
    make();
    check();
    EXPECT_EQ(m_own.startedVersion(), oldVersion);
    const auto installed = runTask<bool>([this](std::stop_token stop) -> Task<bool> {
        co_await m_updater->installOnQuit(stop);
        co_return true;
    });
    ASSERT_TRUE(installed.has_value());
    EXPECT_EQ(m_own.startedVersion(), newVersion);
    EXPECT_EQ(m_relaunches, 0);
}

TEST_F(FeedUpdaterTest, sameVersion_isUpToDate)
{
    publish(oldVersion, programArchive(oldVersion));
    make();
    check();
    EXPECT_EQ(phase(), Phase::UpToDate);
    EXPECT_EQ(words(), QStringLiteral("There is no newer version."));
    EXPECT_EQ(m_server.count("/archive"), 0);
}

TEST_F(FeedUpdaterTest, downgradedFeed_isUpToDate)
{
    publish(QStringLiteral("0.0.9"), programArchive(QStringLiteral("0.0.9")));
    make();
    check();
    EXPECT_EQ(phase(), Phase::UpToDate);
}

TEST_F(FeedUpdaterTest, installationOfThePackageManager_isOnlyTold)
{
    make(bundle(), std::nullopt);
    check();
    EXPECT_EQ(phase(), Phase::Found);
    EXPECT_EQ(m_server.count("/archive"), 0);
    EXPECT_EQ(words(), QStringLiteral("Version 0.2.0 is available. Install it the way this version was installed, for "
                                      "instance with the package manager."));
}

TEST_F(FeedUpdaterTest, replayedFeed_isRefused)
{
    make();
    publishFeed(feedDocument({}, 9));
    check();
    ASSERT_EQ(phase(), Phase::UpToDate);
    publish(newVersion, programArchive(newVersion), 8);
    expectFailure(UpdateFault::FeedReplayed);
}

TEST_F(FeedUpdaterTest, frozenFeed_isNoticedWhenItHasExpired)
{
    make();
    publishFeed(feedDocument({}));
    check();
    ASSERT_EQ(phase(), Phase::UpToDate);
    m_clock.setNowMs(1'706'659'200'000);
    expectFailure(UpdateFault::FeedExpired);
}

TEST_F(FeedUpdaterTest, feedOfAnotherKey_isRefused)
{
    BundleInfo other = bundle();
    other.publicKey = SigningKey().publicText();
    make(other, m_own.find());
    expectFailure(UpdateFault::FeedSignatureWrong);
}

TEST_F(FeedUpdaterTest, buildWithoutAKey_takesNoUpdates)
{
    BundleInfo other = bundle();
    other.publicKey = QStringLiteral("nonsense");
    make(other, m_own.find());
    expectFailure(UpdateFault::NoPublicKey);
    EXPECT_EQ(m_server.requests().size(), 0);
}

TEST_F(FeedUpdaterTest, buildWithoutAVersion_takesNoUpdates)
{
    BundleInfo other = bundle();
    other.shortVersion.reset();
    make(other, std::nullopt);
    expectFailure(UpdateFault::NoVersion);
}

TEST_F(FeedUpdaterTest, plainHttpFeed_isRefused)
{
    BundleInfo other = bundle();
    other.feedUrl = QStringLiteral("http://example.com/feed");
    make(other, m_own.find());
    expectFailure(UpdateFault::AddressRefused);
}

TEST_F(FeedUpdaterTest, endlessFeed_isGivenUp)
{
    m_server.files[QStringLiteral("/feed")] = {.content = QByteArray(2 * 1024 * 1024, 'x')};
    make();
    expectFailure(UpdateFault::FeedTooLong);
}

TEST_F(FeedUpdaterTest, otherArchiveThanAnnounced_isRefusedAndFetchedAnew)
{
    QByteArray other = programArchive(newVersion);
    other[other.size() / 2] = char(other[other.size() / 2] ^ 1);
    m_server.files[archivePath] = {.content = other};
    make();
    expectFailure(UpdateFault::ArchiveHashWrong);
    m_server.files[archivePath] = {.content = programArchive(newVersion)};
    check();
    EXPECT_EQ(phase(), Phase::Ready) << words().toStdString();
}

TEST_F(FeedUpdaterTest, archiveOfAnotherVersion_isRefused)
{
    publish(newVersion, programArchive(oldVersion));
    make();
    expectFailure(UpdateFault::ArchiveIncomplete);
}

TEST_F(FeedUpdaterTest, archiveWithoutTheProgram_isRefused)
{
    publish(newVersion, tarArchive({{.name = "share/ostrel/Info.json", .content = bundleInfoJson(newVersion)}}));
    make();
    expectFailure(UpdateFault::ArchiveIncomplete);
}

TEST_F(FeedUpdaterTest, versionThatDoesNotStartOnThisMachine_isRefused)
{
    for (const char *program : {"#!/nowhere/at/all\n", "#!/bin/sh\necho 'a library is missing' >&2\nexit 127\n",
                                "#!/bin/sh\necho ostrel 0.1.0\n", "#!/bin/sh\nkill -SEGV $$\n"}) {
        publish(newVersion, tarArchive({{.name = "bin/ostrel", .content = program, .mode = 0755},
                                        {.name = "share/ostrel/Info.json", .content = bundleInfoJson(newVersion)}}));
        make();
        expectFailure(UpdateFault::ArchiveDoesNotStart);
        EXPECT_THAT(m_own.versions(), ElementsAre(QStringLiteral(".download"), oldVersion)) << program;
    }
}

TEST_F(FeedUpdaterTest, versionThatDoesNotStart_isToldInItsOwnWords)
{
    publish(newVersion, tarArchive({{.name = "bin/ostrel",
                                     .content = "#!/bin/sh\necho 'libnew.so.9 is missing' >&2\nexit 127\n",
                                     .mode = 0755},
                                    {.name = "share/ostrel/Info.json", .content = bundleInfoJson(newVersion)}}));
    make();
    expectFailure(UpdateFault::ArchiveDoesNotStart);
    EXPECT_EQ(words(), QStringLiteral("The new version does not start on this machine, so it was not installed. "
                                      "libnew.so.9 is missing"));
}

TEST_F(FeedUpdaterTest, downloadOfAnotherProgram_isNotSpoiled)
{
    m_server.files[archivePath].stallAfter = 100;
    make();
    m_updater->checkForUpdates();
    ASSERT_TRUE(pumpUntil([this] { return m_updater->state().receivedBytes >= 100; }));
    const auto first = std::exchange(m_updater, nullptr);
    make();
    expectFailure(UpdateFault::InstallationBusy);
    EXPECT_EQ(m_server.count("/archive"), 1);
}

TEST_F(FeedUpdaterTest, signedMaliciousArchive_isRefusedAllTheSame)
{
    publish(newVersion, tarArchive({{.name = "../../current/bin/ostrel", .content = "evil"}}));
    make();
    expectFailure(UpdateFault::ArchiveUnsafe);
}

TEST_F(FeedUpdaterTest, switchThatFails_relaunchesAllTheSameAndIsNotTriedByItself)
{
    make();
    check();
    ASSERT_TRUE(QDir(m_own.path(QStringLiteral("versions/0.2.0"))).removeRecursively());
    install();
    EXPECT_EQ(phase(), Phase::Failed);
    EXPECT_EQ(m_relaunches, 1) << "what the preparation has ended comes back with the old version";
    m_phases.clear();
    m_delegate.versions.clear();
    make();
    m_updater->startUpdater();
    ASSERT_FALSE(pumpUntil([this] { return isOver(); }, std::chrono::seconds(0))) << "a day has not passed";
    m_clock.setNowMs(m_clock.nowMs() + 25LL * 3600 * 1000);
    make();
    m_updater->startUpdater();
    ASSERT_TRUE(pumpUntil([this] { return isOver(); }));
    EXPECT_EQ(phase(), Phase::Found);
    check();
    ASSERT_TRUE(pumpUntil([this] { return phase() == Phase::Ready; })) << "who asks gets it";
}

TEST_F(FeedUpdaterTest, versionThatTheUserWentBackFrom_isNotInstalledByItself)
{
    make();
    check();
    install();
    ASSERT_TRUE(m_own.find()->rollBack().has_value());
    m_defaults.lists.clear();
    make();
    m_updater->startUpdater();
    ASSERT_TRUE(pumpUntil([this] { return isOver(); }));
    EXPECT_EQ(phase(), Phase::Found);
    EXPECT_EQ(m_own.startedVersion(), oldVersion);
}

TEST_F(FeedUpdaterTest, versionThatAnotherProgramHasInstalledAndGoneBackFrom_isLeftAlone)
{
    make();
    check();
    ASSERT_EQ(phase(), Phase::Ready);
    const Installation other = m_own.find().value();
    ASSERT_TRUE(other.activate(Version::parse(newVersion).value()).has_value());
    ASSERT_TRUE(other.rollBack().has_value());
    install();
    EXPECT_EQ(m_own.startedVersion(), oldVersion);
    EXPECT_EQ(phase(), Phase::Found);
}

TEST_F(FeedUpdaterTest, newerVersionThatAnotherProgramHasInstalled_stays)
{
    make();
    check();
    ASSERT_EQ(phase(), Phase::Ready);
    const Installation other = m_own.find().value();
    const Version newest = Version::parse(QStringLiteral("0.3.0")).value();
    ASSERT_TRUE(
        other.stage(newest, [](const QString &folder) { return fillWithProgram(folder, QStringLiteral("0.3.0")); })
            .has_value());
    ASSERT_TRUE(other.activate(newest).has_value());
    install();
    EXPECT_EQ(m_own.startedVersion(), QStringLiteral("0.3.0"));
    ASSERT_EQ(phase(), Phase::Failed);
    EXPECT_TRUE(isUpdateFault(*m_updater->state().error, UpdateFault::NewerThere));
}

TEST_F(FeedUpdaterTest, secondCheckDuringTheFirst_changesNothing)
{
    make();
    m_updater->checkForUpdates();
    check();
    EXPECT_EQ(m_server.count("/feed"), 1);
    EXPECT_EQ(m_server.count("/archive"), 1);
}

TEST_F(FeedUpdaterTest, updaterThatGoesDuringADownload_leavesItToTheNext)
{
    m_server.files[archivePath].stallAfter = 100;
    make();
    m_updater->checkForUpdates();
    ASSERT_TRUE(pumpUntil([this] { return m_updater->state().receivedBytes >= 100; }));
    m_updater.reset();
    m_server.files[archivePath].stallAfter.reset();
    make();
    check();
    EXPECT_EQ(phase(), Phase::Ready) << words().toStdString();
    EXPECT_NE(m_server.requests().last().header("range"), QList<QByteArray>()) << "it went on";
}

} // namespace
