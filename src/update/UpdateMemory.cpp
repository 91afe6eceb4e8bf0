#include "update/UpdateMemory.h"

#include "base/Text.h"
#include "base/UserDefaults.h"
#include "update/UpdateFault.h"

#include <QDateTime>
#include <QStringList>

namespace ostrel {

namespace {

/// The key that has signed, and the highest sequence number of its feeds: another key counts anew.
const QString sequenceKey = QStringLiteral("updateFeedSequence");
const QString lastCheckKey = QStringLiteral("updateLastCheck");
const QString failedVersionKey = QStringLiteral("updateFailedVersion");

} // namespace

QString UpdateMemory::value(const QString &key, qsizetype index) const
{
    return m_defaults.stringList(key).value_or(QStringList()).value(index);
}

Result<> UpdateMemory::admit(const Feed &feed, const UpdateKey &key, qint64 nowMs)
{
    const bool knownKey = value(sequenceKey, 0) == key.text();
    const qint64 highest = knownKey ? parseInteger(value(sequenceKey, 1)).value_or(0) : 0;
    if (feed.sequence < highest)
        return std::unexpected(updateError(UpdateFault::FeedReplayed));
    if (nowMs >= feed.expiresMs)
        return std::unexpected(
            updateError(UpdateFault::FeedExpired,
                        QDateTime::fromMSecsSinceEpoch(feed.expiresMs, Qt::UTC).date().toString(Qt::ISODate)));
    if (feed.sequence > highest)
        m_defaults.setStringList(sequenceKey, {key.text(), QString::number(feed.sequence)});
    return {};
}

std::optional<qint64> UpdateMemory::lastCheckMs() const
{
    return parseInteger(value(lastCheckKey, 0));
}

void UpdateMemory::setLastCheckMs(qint64 nowMs)
{
    m_defaults.setStringList(lastCheckKey, {QString::number(nowMs)});
}

std::optional<Version> UpdateMemory::failedVersion() const
{
    return Version::parse(value(failedVersionKey, 0));
}

void UpdateMemory::setFailedVersion(const std::optional<Version> &version)
{
    m_defaults.setStringList(failedVersionKey, version ? QStringList(version->text()) : QStringList());
}

} // namespace ostrel
