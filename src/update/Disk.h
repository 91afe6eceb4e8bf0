#pragma once

#include "base/Error.h"

#include <QString>

namespace ostrel {

/// The steps by which an installation changes, each done or not done as a whole. Its tests cut the power between any
/// two. For a worker.
class Disk
{
public:
    virtual ~Disk() = default;

    /// Makes a folder for the user alone.
    virtual Result<> makeFolder(const QString &path) = 0;
    /// Lets everybody who may reach it look into a folder.
    virtual Result<> openFolder(const QString &path) = 0;
    virtual Result<> makeLink(const QString &target, const QString &path) = 0;
    /// A file or link that has the name already is replaced; a folder is not.
    virtual Result<> rename(const QString &from, const QString &to) = 0;
    /// Brings the names in a folder to the disk: before that, a power failure may undo what was done to them.
    virtual Result<> syncFolder(const QString &path) = 0;
    /// Removes a link, a file, or a folder with all that is in it. Nothing there is no error.
    virtual Result<> remove(const QString &path) = 0;
};

class SystemDisk : public Disk
{
public:
    Result<> makeFolder(const QString &path) override;
    Result<> openFolder(const QString &path) override;
    Result<> makeLink(const QString &target, const QString &path) override;
    Result<> rename(const QString &from, const QString &to) override;
    Result<> syncFolder(const QString &path) override;
    Result<> remove(const QString &path) override;
};

} // namespace ostrel
