#pragma once

#include "base/Error.h"
#include "update/Disk.h"
#include "update/Version.h"

#include <QString>

#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>

namespace ostrel {

class FileLock;

/// An installation that this user's program may change itself: versions side by side, of which a link names one.
///
///     <root>/current  -> versions/0.2.0      what starts
///     <root>/previous -> versions/0.1.0      what one can go back to
///     <root>/versions/0.2.0/bin/ostrel …
///
/// A version's folder gets its name when it is complete and on the disk, and `current` is replaced by a rename:
/// whenever the power fails or the process is killed, `current` leads to a whole version. What was left half done is
/// removed by the next change. For a worker: everything blocks on the disk.
class Installation
{
public:
    /// Fills an empty folder with a version, and brings its files to the disk.
    using Fill = std::function<Result<>(const QString &folder)>;

    /// Holds as long as a copy of it lives. (A structure for the sake of libstdc++ 12, like HttpBytes.)
    struct Reservation {
        std::shared_ptr<FileLock> lock;
    };

    /// The installation that a program belongs to.
    /// @param prefix what the program's `bin` lies in, links resolved
    /// @return nothing where it has another shape or belongs to somebody else, such as the package manager
    static std::optional<Installation> around(const QString &prefix, std::shared_ptr<Disk> disk);

    /// Where downloads wait until they are complete.
    QString downloadFolder() const { return m_root + QLatin1String("/versions/.download"); }

    /// What starts the version that is current then.
    QString startPath() const { return m_root + QLatin1String("/current/bin/ostrel"); }

    /// The version that starts next; nothing where the link leads nowhere.
    std::optional<Version> current() const { return present(linked(QLatin1String("current"))); }
    std::optional<Version> previous() const { return present(linked(QLatin1String("previous"))); }
    /// Whether the user has gone back from a version.
    bool isRejected(const Version &version) const;

    /// Keeps other programs from downloading into the same folder for as long as what is returned lives; or
    /// InstallationBusy, where one does.
    Result<Reservation> reserveDownloads() const;
    /// Puts a version beside the others, ready to be switched to. One that runs, or would start, is left as it is.
    Result<> stage(const Version &version, const Fill &fill) const;
    /// Makes a staged version the one that starts next, and the one that did so far the previous one. All others go,
    /// but for those that run. A version that is current already is left so, and so is one that is newer (NewerThere):
    /// another program has installed it since this one was staged.
    Result<> activate(const Version &version) const;
    /// Makes the previous version the one that starts next, and the other way round. Where a switch that was cut off
    /// has lost the previous one, it is the highest that is there and lower than the current one.
    /// @return that version, or NoPreviousVersion
    Result<Version> rollBack() const;

private:
    using Step = std::function<Result<>()>;

    Installation(QString root, Version running, std::shared_ptr<Disk> disk);
    QString versions() const { return m_root + QLatin1String("/versions"); }
    QString folderOf(const Version &version) const { return versions() + QLatin1Char('/') + version.text(); }
    std::optional<Version> linked(QLatin1String name) const;
    std::optional<Version> present(const std::optional<Version> &version) const;
    std::optional<Version> wayBack() const;
    Result<> locked(const Step &change) const;
    Result<> unpackBeside(const Version &version, const Fill &fill) const;
    Result<> setLink(const QString &name, const Version &version) const;
    Result<> makeCurrent(const Version &version) const;
    Result<> removeLeftovers() const;
    void removeOtherVersions() const;
    void removeDownloads() const;

    QString m_root;
    Version m_running;
    std::shared_ptr<Disk> m_disk;
};

} // namespace ostrel
