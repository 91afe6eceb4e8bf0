#pragma once

#include "base/Error.h"

#include <QString>

#include <chrono>

namespace ostrel {

/// A lock that one thread of one process holds at a time, on a file made for it. The kernel lets it go when its process
/// ends, however that happens. Any thread.
class FileLock
{
public:
    enum class Outcome {
        Acquired,
        HeldByAnother, ///< for longer than one's patience
        NoFile,        ///< it can't be made or locked here at all; `error` says why
    };

    /// Makes the file and the folders it lies in, for the user alone.
    explicit FileLock(const QString &path);
    FileLock(const FileLock &) = delete;
    FileLock &operator=(const FileLock &) = delete;
    ~FileLock();

    /// Holds the lock until this object goes. Called once.
    Outcome acquire(std::chrono::milliseconds patience);

    /// What is wrong with the file.
    Error error() const;

private:
    const QString m_path;
    const int m_descriptor;
    int m_errorNumber;
};

} // namespace ostrel
