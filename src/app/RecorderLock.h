#pragma once

#include "base/Error.h"

#include <QString>

namespace ostrel {

/// Makes sure that one program of the user records at a time. The lock is the kernel's, on `~/.ostrel/lock`: it ends
/// with its process, however that ends. What stands in the file only tells others who holds it.
class RecorderLock
{
public:
    RecorderLock(RecorderLock &&other) noexcept;
    RecorderLock &operator=(RecorderLock &&) = delete;
    ~RecorderLock();

    /// @return an error that names the holder's process and since when it runs, or the file's error
    static Result<RecorderLock> acquire();

    /// `~/.ostrel/lock`
    static QString file();

private:
    explicit RecorderLock(int descriptor) : m_descriptor(descriptor) {}
    int m_descriptor;
};

} // namespace ostrel
