#include "OwnInstallation.h"
#include "base/Fault.h"
#include "support/Printers.h"

#include <csignal>
#include <functional>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>

using namespace ostrel;

namespace {

const QString oldVersion = QStringLiteral("0.1.0");
const QString newVersion = QStringLiteral("0.2.0");

Version version(const QString &text)
{
    return Version::parse(text).value();
}

/// A disk that does something of its own before each step.
class WatchedDisk : public SystemDisk
{
public:
    Result<> makeFolder(const QString &path) override
    {
        return step([&] { return SystemDisk::makeFolder(path); });
    }
    Result<> openFolder(const QString &path) override
    {
        return step([&] { return SystemDisk::openFolder(path); });
    }
    Result<> makeLink(const QString &target, const QString &path) override
    {
        return step([&] { return SystemDisk::makeLink(target, path); });
    }
    Result<> rename(const QString &from, const QString &to) override
    {
        return step([&] { return SystemDisk::rename(from, to); });
    }
    Result<> syncFolder(const QString &path) override
    {
        return step([&] { return SystemDisk::syncFolder(path); });
    }
    Result<> remove(const QString &path) override
    {
        return step([&] { return SystemDisk::remove(path); });
    }

protected:
    virtual Result<> step(const std::function<Result<>()> &act) = 0;
};

class CountingDisk final : public WatchedDisk
{
public:
    int steps = 0;

protected:
    Result<> step(const std::function<Result<>()> &act) override
    {
        ++steps;
        return act();
    }
};

/// The process is killed before a step.
class KillingDisk final : public WatchedDisk
{
public:
    explicit KillingDisk(int before) : m_left(before) {}

protected:
    Result<> step(const std::function<Result<>()> &act) override
    {
        if (m_left-- == 0)
            ::raise(SIGKILL);
        return act();
    }

private:
    int m_left;
};

/// The power fails before a step: nothing happens any more, and what was done to the names in a folder since it was
/// brought to the disk last is undone, which is the worst that a file system may do.
class PowerlessDisk final : public SystemDisk
{
public:
    explicit PowerlessDisk(int before) : m_left(before) {}

    Result<> makeFolder(const QString &path) override
    {
        return change(path, [&] { return SystemDisk::makeFolder(path); }, [path] { QDir(path).removeRecursively(); });
    }
    Result<> openFolder(const QString &path) override
    {
        return change({}, [&] { return SystemDisk::openFolder(path); }, [] {});
    }
    Result<> makeLink(const QString &target, const QString &path) override
    {
        return change(path, [&] { return SystemDisk::makeLink(target, path); }, [path] { QFile::remove(path); });
    }
    Result<> rename(const QString &from, const QString &to) override
    {
        const QString before = QFileInfo(to).isSymLink() ? QString::fromLocal8Bit(linkText(to)) : QString();
        return change(
            to, [&] { return SystemDisk::rename(from, to); },
            [from, to, before] {
                ::rename(QFile::encodeName(to).constData(), QFile::encodeName(from).constData());
                if (!before.isEmpty())
                    QFile::link(before, to);
            });
    }
    Result<> syncFolder(const QString &path) override
    {
        auto outcome = change({}, [&] { return SystemDisk::syncFolder(path); }, [] {});
        if (outcome)
            m_undo.removeIf([&](const Undo &undo) { return undo.folder == path; });
        return outcome;
    }
    Result<> remove(const QString &path) override
    {
        return change({}, [&] { return SystemDisk::remove(path); }, [] {});
    }

    void loseWhatWasNotSynced()
    {
        while (!m_undo.isEmpty())
            m_undo.takeLast().undo();
    }

private:
    struct Undo {
        QString folder;
        std::function<void()> undo;
    };

    static QByteArray linkText(const QString &path)
    {
        QByteArray text(256, '\0');
        const auto length = ::readlink(QFile::encodeName(path).constData(), text.data(), size_t(text.size()));
        return text.first(std::max<qsizetype>(length, 0));
    }

    Result<> change(const QString &path, const std::function<Result<>()> &act, const std::function<void()> &undo)
    {
        if (m_left-- <= 0)
            return std::unexpected(faultError(Fault::FileFailed, QStringLiteral("the power is off")));
        auto outcome = act();
        if (outcome && !path.isEmpty())
            m_undo.append({.folder = QFileInfo(path).path(), .undo = undo});
        return outcome;
    }

    int m_left;
    QList<Undo> m_undo;
};

Result<> fillNewVersion(const QString &folder)
{
    return fillWithProgram(folder, newVersion);
}

Result<> update(const Installation &installation)
{
    if (auto staged = installation.stage(version(newVersion), fillNewVersion); !staged)
        return staged;
    return installation.activate(version(newVersion));
}

int stepsOfAnUpdate()
{
    const OwnInstallation own;
    const auto disk = std::make_shared<CountingDisk>();
    EXPECT_TRUE(update(own.find(disk).value()).has_value());
    return disk->steps;
}

/// Something whole starts, and the next attempt brings the new version and leaves nothing behind.
void expectUsable(const OwnInstallation &own, int step)
{
    EXPECT_THAT(own.startedVersion(), testing::AnyOf(oldVersion, newVersion)) << "step " << step;
    const auto installation = own.find();
    ASSERT_TRUE(installation.has_value()) << "step " << step;
    ASSERT_TRUE(update(*installation).has_value()) << "step " << step;
    EXPECT_EQ(own.startedVersion(), newVersion) << "step " << step;
    EXPECT_EQ(own.versions(), QStringList({oldVersion, newVersion})) << "step " << step;
    EXPECT_FALSE(QFileInfo(own.path(QStringLiteral("current.next"))).isSymLink()) << "step " << step;
}

TEST(PowerCutTest, atEveryStepOfTheSwitch_theInstalledVersionStarts)
{
    const int steps = stepsOfAnUpdate();
    ASSERT_GT(steps, 15);
    for (int step = 0; step < steps; ++step) {
        const OwnInstallation own;
        const auto disk = std::make_shared<PowerlessDisk>(step);
        const auto outcome = update(own.find(disk).value());
        disk->loseWhatWasNotSynced();
        // What is removed at the end no longer counts.
        if (outcome)
            EXPECT_EQ(own.startedVersion(), newVersion) << "what was reported as done is done, step " << step;
        expectUsable(own, step);
    }
}

TEST(PowerCutTest, processKilledAtEveryStep_theInstalledVersionStarts)
{
    const int steps = stepsOfAnUpdate();
    for (int step = 0; step < steps; ++step) {
        const OwnInstallation own;
        const pid_t child = ::fork();
        if (child == 0) {
            update(own.find(std::make_shared<KillingDisk>(step)).value());
            ::_exit(0);
        }
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "step " << step;
        expectUsable(own, step);
    }
}

/// An updated installation, which is about to be rolled back.
class UpdatedInstallation : public OwnInstallation
{
public:
    UpdatedInstallation() { EXPECT_TRUE(update(find().value()).has_value()); }
};

void expectBothVersionsWithinReach(const OwnInstallation &own, int step)
{
    const QString started = own.startedVersion();
    ASSERT_THAT(started, testing::AnyOf(oldVersion, newVersion)) << "step " << step;
    // One way or the other, the old version is what one comes to.
    if (started == newVersion)
        ASSERT_TRUE(own.find().value().rollBack().has_value()) << "step " << step;
    EXPECT_EQ(own.startedVersion(), oldVersion) << "step " << step;
}

TEST(PowerCutTest, atEveryStepOfTheWayBack_bothVersionsStayWithinReach)
{
    int steps = 0;
    {
        const UpdatedInstallation own;
        const auto disk = std::make_shared<CountingDisk>();
        ASSERT_TRUE(own.find(disk).value().rollBack().has_value());
        steps = disk->steps;
    }
    ASSERT_GT(steps, 8);
    for (int step = 0; step < steps; ++step) {
        const UpdatedInstallation own;
        const auto disk = std::make_shared<PowerlessDisk>(step);
        EXPECT_FALSE(own.find(disk).value().rollBack().has_value()) << "step " << step;
        disk->loseWhatWasNotSynced();
        expectBothVersionsWithinReach(own, step);
    }
}

TEST(PowerCutTest, processKilledWhileItUnpacks_theInstalledVersionStarts)
{
    const OwnInstallation own;
    const pid_t child = ::fork();
    if (child == 0) {
        static_cast<void>(own.find().value().stage(version(newVersion), [](const QString &folder) -> Result<> {
            static_cast<void>(fillNewVersion(folder));
            ::raise(SIGKILL);
            return {};
        }));
        ::_exit(0);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(own.startedVersion(), oldVersion);
    expectUsable(own, 0);
}

} // namespace
