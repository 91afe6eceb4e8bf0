#include "OwnInstallation.h"
#include "base/Fault.h"
#include "base/FileLock.h"
#include "support/Printers.h"
#include "support/TestHome.h"
#include "update/UpdateFault.h"

#include <gmock/gmock.h>

using namespace ostrel;
using testing::ElementsAre;

namespace {

Version version(const char *text)
{
    return Version::parse(QString::fromLatin1(text)).value();
}

Installation::Fill programOf(const Version &version)
{
    return [version](const QString &folder) { return fillWithProgram(folder, version.text()); };
}

class InstallationTest : public testing::Test
{
protected:
    void install(const char *text)
    {
        ASSERT_TRUE(m_installation.stage(version(text), programOf(version(text))).has_value());
        ASSERT_TRUE(m_installation.activate(version(text)).has_value());
    }
    QStringList wholeVersions() const
    {
        QStringList names = m_own.versions();
        names.removeIf([](const QString &name) { return name.startsWith(u'.'); });
        return names;
    }

    OwnInstallation m_own;
    const Installation m_installation = m_own.find().value();
};

TEST_F(InstallationTest, versionInTheUsersFolder_isOurs)
{
    EXPECT_EQ(m_installation.current(), version("0.1.0"));
    EXPECT_EQ(m_installation.previous(), std::nullopt);
}

TEST_F(InstallationTest, otherShapes_belongToSomebodyElse)
{
    const auto disk = std::make_shared<SystemDisk>();
    EXPECT_FALSE(Installation::around(QStringLiteral("/usr"), disk).has_value());
    EXPECT_FALSE(Installation::around(m_own.root(), disk).has_value());
    ASSERT_TRUE(fillWithProgram(m_own.path(QStringLiteral("versions/nightly")), QStringLiteral("0.1.0")).has_value());
    EXPECT_FALSE(Installation::around(m_own.path(QStringLiteral("versions/nightly")), disk).has_value());
    ASSERT_TRUE(QFile::remove(m_own.path(QStringLiteral("current"))));
    EXPECT_FALSE(m_own.find().has_value()) << "nothing says which version starts";
}

TEST_F(InstallationTest, currentLinkMadeByHand_isUnderstoodHoweverItIsWritten)
{
    for (const QString &target : {QStringLiteral("versions/0.1.0/"), QStringLiteral("./versions/0.1.0"),
                                  m_own.path(QStringLiteral("versions/0.1.0"))}) {
        ASSERT_TRUE(QFile::remove(m_own.path(QStringLiteral("current"))));
        ASSERT_TRUE(QFile::link(target, m_own.path(QStringLiteral("current"))));
        ASSERT_TRUE(m_own.find().has_value()) << target.toStdString();
        EXPECT_EQ(m_own.find()->current(), version("0.1.0")) << target.toStdString();
    }
}

TEST_F(InstallationTest, currentLinkToElsewhere_belongsToSomebodyElse)
{
    for (const char *target : {"/usr", "versions", "versions/../../0.1.0", "versions/0.1.0/bin", "other/0.1.0"}) {
        ASSERT_TRUE(QFile::remove(m_own.path(QStringLiteral("current"))));
        ASSERT_TRUE(QFile::link(QLatin1String(target), m_own.path(QStringLiteral("current"))));
        EXPECT_FALSE(m_own.find().has_value()) << target;
    }
}

TEST_F(InstallationTest, currentLinkThatLeadsNowhere_isMendedByTheNextVersion)
{
    ASSERT_TRUE(QFile::remove(m_own.path(QStringLiteral("current"))));
    ASSERT_TRUE(QFile::link(QStringLiteral("versions/9.0.0"), m_own.path(QStringLiteral("current"))));
    EXPECT_EQ(m_installation.current(), std::nullopt) << "9.0.0 does not start";
    install("0.2.0");
    EXPECT_EQ(m_own.startedVersion(), QStringLiteral("0.2.0"));
    EXPECT_EQ(m_installation.previous(), version("0.1.0"));
}

TEST_F(InstallationTest, folderOfAnotherUser_belongsToThem)
{
    ASSERT_EQ(::geteuid(), 0U) << "only root can give a folder away";
    ASSERT_EQ(::chown(QFile::encodeName(m_own.path(QStringLiteral("versions"))).constData(), unprivilegedUser, 0), 0);
    EXPECT_FALSE(m_own.find().has_value());
}

TEST_F(InstallationTest, stagedVersion_isReadableByAllAndDoesNotStartYet)
{
    ASSERT_TRUE(m_installation.stage(version("0.2.0"), programOf(version("0.2.0"))).has_value());
    EXPECT_EQ(m_own.startedVersion(), QStringLiteral("0.1.0"));
    EXPECT_EQ(QFileInfo(m_own.path(QStringLiteral("versions/0.2.0"))).permissions() & 0x0fff, 0x0755);
}

TEST_F(InstallationTest, folderBeingFilled_isTheUsersAlone)
{
    QFile::Permissions permissions;
    ASSERT_TRUE(m_installation
                    .stage(version("0.2.0"),
                           [&](const QString &folder) {
                               permissions = QFileInfo(folder).permissions();
                               return fillWithProgram(folder, QStringLiteral("0.2.0"));
                           })
                    .has_value());
    EXPECT_EQ(permissions & 0x0077, 0);
}

TEST_F(InstallationTest, activatedVersion_startsAndThePreviousOneStays)
{
    install("0.2.0");
    EXPECT_EQ(m_own.startedVersion(), QStringLiteral("0.2.0"));
    EXPECT_EQ(m_installation.previous(), version("0.1.0"));
    EXPECT_THAT(wholeVersions(), ElementsAre(QStringLiteral("0.1.0"), QStringLiteral("0.2.0")));
}

TEST_F(InstallationTest, thirdVersion_leavesExactlyThePreviousOneAndTheOneThatRuns)
{
    install("0.2.0");
    install("0.3.0");
    EXPECT_THAT(wholeVersions(),
                ElementsAre(QStringLiteral("0.1.0"), QStringLiteral("0.2.0"), QStringLiteral("0.3.0")));
    const auto restarted =
        Installation::around(m_own.path(QStringLiteral("versions/0.3.0")), std::make_shared<SystemDisk>());
    ASSERT_TRUE(restarted.has_value());
    ASSERT_TRUE(restarted->stage(version("0.4.0"), programOf(version("0.4.0"))).has_value());
    ASSERT_TRUE(restarted->activate(version("0.4.0")).has_value());
    EXPECT_THAT(wholeVersions(), ElementsAre(QStringLiteral("0.3.0"), QStringLiteral("0.4.0")));
}

TEST_F(InstallationTest, versionThatAnotherProgramRuns_staysUntilThatEnds)
{
    install("0.2.0");
    const QString running = m_own.path(QStringLiteral("versions/0.1.0/bin/running"));
    ASSERT_TRUE(QFile::copy(QStringLiteral("/bin/sleep"), running));
    QProcess other;
    other.start(running, {QStringLiteral("600")});
    ASSERT_TRUE(other.waitForStarted());
    const auto restarted = [this](const QString &name) {
        return Installation::around(m_own.path(QStringLiteral("versions/") + name), std::make_shared<SystemDisk>())
            .value();
    };
    const Installation second = restarted(QStringLiteral("0.2.0"));
    ASSERT_TRUE(second.stage(version("0.3.0"), programOf(version("0.3.0"))).has_value());
    ASSERT_TRUE(second.activate(version("0.3.0")).has_value());
    EXPECT_THAT(wholeVersions(),
                ElementsAre(QStringLiteral("0.1.0"), QStringLiteral("0.2.0"), QStringLiteral("0.3.0")));
    other.kill();
    ASSERT_TRUE(other.waitForFinished());
    const Installation third = restarted(QStringLiteral("0.3.0"));
    ASSERT_TRUE(third.stage(version("0.4.0"), programOf(version("0.4.0"))).has_value());
    ASSERT_TRUE(third.activate(version("0.4.0")).has_value());
    EXPECT_THAT(wholeVersions(), ElementsAre(QStringLiteral("0.3.0"), QStringLiteral("0.4.0")));
}

TEST_F(InstallationTest, versionOlderThanTheCurrentOne_isNotActivated)
{
    ASSERT_TRUE(m_installation.stage(version("0.2.0"), programOf(version("0.2.0"))).has_value());
    ASSERT_TRUE(m_installation.stage(version("0.3.0"), programOf(version("0.3.0"))).has_value());
    ASSERT_TRUE(m_installation.activate(version("0.3.0")).has_value());
    const auto outcome = m_installation.activate(version("0.2.0"));
    ASSERT_FALSE(outcome.has_value());
    EXPECT_TRUE(isUpdateFault(outcome.error(), UpdateFault::NewerThere));
    EXPECT_EQ(m_own.startedVersion(), QStringLiteral("0.3.0"));
}

TEST_F(InstallationTest, fillThatFails_leavesEverythingAsItWas)
{
    const auto outcome = m_installation.stage(version("0.2.0"), [](const QString &) -> Result<> {
        return std::unexpected(faultError(Fault::DiskFull, QStringLiteral("x")));
    });
    ASSERT_FALSE(outcome.has_value());
    EXPECT_TRUE(isFault(outcome.error(), Fault::DiskFull));
    EXPECT_EQ(m_own.startedVersion(), QStringLiteral("0.1.0"));
    EXPECT_THAT(m_own.versions(), ElementsAre(QStringLiteral("0.1.0"))) << "a full disk is not kept full";
    install("0.2.0");
    EXPECT_THAT(m_own.versions(), ElementsAre(QStringLiteral("0.1.0"), QStringLiteral("0.2.0")));
}

TEST_F(InstallationTest, versionThatWasStagedBefore_isReplaced)
{
    ASSERT_TRUE(m_installation.stage(version("0.2.0"), programOf(version("0.1.9"))).has_value());
    install("0.2.0");
    EXPECT_EQ(m_own.startedVersion(), QStringLiteral("0.2.0"));
}

TEST_F(InstallationTest, versionThatRuns_isNotTouched)
{
    const auto outcome = m_installation.stage(version("0.1.0"), [](const QString &) -> Result<> {
        ADD_FAILURE() << "it was filled";
        return {};
    });
    EXPECT_TRUE(outcome.has_value());
}

TEST_F(InstallationTest, versionThatWasNotStaged_isNotActivated)
{
    EXPECT_FALSE(m_installation.activate(version("0.2.0")).has_value());
    EXPECT_EQ(m_own.startedVersion(), QStringLiteral("0.1.0"));
}

TEST_F(InstallationTest, activatingTwice_keepsThePreviousVersion)
{
    install("0.2.0");
    ASSERT_TRUE(m_installation.activate(version("0.2.0")).has_value());
    EXPECT_EQ(m_installation.previous(), version("0.1.0"));
}

TEST_F(InstallationTest, rollBack_startsThePreviousVersionAndRejectsTheNewer)
{
    install("0.2.0");
    EXPECT_FALSE(m_installation.isRejected(version("0.2.0")));
    EXPECT_EQ(m_installation.rollBack().value(), version("0.1.0"));
    EXPECT_EQ(m_own.startedVersion(), QStringLiteral("0.1.0"));
    EXPECT_TRUE(m_installation.isRejected(version("0.2.0")));
    EXPECT_FALSE(m_installation.isRejected(version("0.3.0")));
    EXPECT_EQ(m_installation.rollBack().value(), version("0.2.0")) << "and back again";
}

TEST_F(InstallationTest, rollBackWithoutThePreviousLink_goesToTheVersionBelow)
{
    install("0.2.0");
    ASSERT_TRUE(QFile::remove(m_own.path(QStringLiteral("previous"))));
    EXPECT_EQ(m_installation.rollBack().value(), version("0.1.0"));
    EXPECT_EQ(m_own.startedVersion(), QStringLiteral("0.1.0"));
}

TEST_F(InstallationTest, rollBackWithoutAPreviousVersion_isRefused)
{
    ASSERT_TRUE(m_installation.stage(version("0.2.0"), programOf(version("0.2.0"))).has_value());
    const auto outcome = m_installation.rollBack();
    ASSERT_FALSE(outcome.has_value());
    EXPECT_TRUE(isUpdateFault(outcome.error(), UpdateFault::NoPreviousVersion));
}

TEST_F(InstallationTest, changeByAnotherProcess_isNotDisturbed)
{
    FileLock other(m_own.path(QStringLiteral("versions/.lock")));
    ASSERT_EQ(other.acquire(std::chrono::milliseconds(0)), FileLock::Outcome::Acquired);
    const auto outcome = m_installation.stage(version("0.2.0"), programOf(version("0.2.0")));
    ASSERT_FALSE(outcome.has_value());
    EXPECT_TRUE(isUpdateFault(outcome.error(), UpdateFault::InstallationBusy));
}

} // namespace
