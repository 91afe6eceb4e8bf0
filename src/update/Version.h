#pragma once

#include <QList>
#include <QString>
#include <QStringList>

#include <compare>
#include <optional>

namespace ostrel {

/// A version as in "1.4.0" or "1.4.0-beta.2", ordered by the rules of https://semver.org. Its text is fit to be the
/// name of a folder.
class Version
{
public:
    /// Three numbers, and perhaps the words of a pre-release. @return nothing for everything else, build metadata
    /// included
    static std::optional<Version> parse(const QString &text);

    QString text() const;

    std::strong_ordering operator<=>(const Version &other) const;
    bool operator==(const Version &other) const { return (*this <=> other) == 0; }

private:
    QList<qint64> m_numbers;
    QStringList m_preRelease; ///< empty for a release, which is newer than its pre-releases
};

} // namespace ostrel
