#pragma once

#include "base/Error.h"

#include <QString>
#include <optional>

namespace ostrel {

/// Makes sure that one program of the user records at a time, and that none begins to while a command uses an observer
/// that ends with it. The lock is the kernel's, on `~/.ostrel/lock`: it ends with its process, however that ends. What
/// stands in the file only tells others who holds it, and what for.
class RecorderLock
{
public:
    enum class Purpose {
        Recording,
        Command, ///< one of the command line, with an observer of its own that ends with it
    };

    RecorderLock(RecorderLock &&other) noexcept;
    RecorderLock &operator=(RecorderLock &&) = delete;
    ~RecorderLock();

    /// @return an error that names the holder's process and since when it runs, or the file's error
    static Result<RecorderLock> acquire(Purpose purpose = Purpose::Recording);
    /// Whether that error says that somebody else holds it.
    static bool isHeldByAnother(const Error &error);

    /// Who records at the moment.
    struct Holder {
        qint64 processId = 0;
        QString since; ///< ISO 8601, local time
    };
    /// Looks without touching the lock: a try to take it, however short, could make a recorder's start fail.
    /// @param kernelLocks the kernel's list of all file locks
    /// @return nothing when nobody records, or when who does has just started and has not signed it yet
    static std::optional<Holder> holder(const QString &kernelLocks = QStringLiteral("/proc/locks"));

    /// `~/.ostrel/lock`
    static QString file();

private:
    explicit RecorderLock(int descriptor) : m_descriptor(descriptor) {}
    int m_descriptor;
};

} // namespace ostrel
