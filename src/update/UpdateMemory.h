#pragma once

#include "base/Error.h"
#include "update/Feed.h"

#include <QString>

#include <optional>

namespace ostrel {

class UserDefaults;

/// What this user's program remembers of updates between its starts. Main thread.
class UpdateMemory
{
public:
    /// @param defaults where it is kept; outlives this object
    explicit UpdateMemory(UserDefaults &defaults) : m_defaults(defaults) {}

    /// Takes note of a feed, unless it is older than one that was seen before (FeedReplayed) or has expired
    /// (FeedExpired): whoever stands between us and the server could show us yesterday for ever.
    Result<> admit(const Feed &feed, const UpdateKey &key, qint64 nowMs);

    /// When a check last came to its end, in milliseconds since 1970.
    std::optional<qint64> lastCheckMs() const;
    void setLastCheckMs(qint64 nowMs);

    /// The version whose installation failed last, and is not tried again without being asked for.
    std::optional<Version> failedVersion() const;
    void setFailedVersion(const std::optional<Version> &version);

private:
    QString value(const QString &key, qsizetype index) const;

    UserDefaults &m_defaults;
};

} // namespace ostrel
