#include "update/Version.h"

#include "base/Text.h"

#include <QRegularExpression>

#include <algorithm>

namespace ostrel {

namespace {

constexpr qsizetype longestVersion = 64;

/// Digits alone; "-5" is a word.
std::optional<qint64> asNumber(const QString &word)
{
    return word.startsWith(QLatin1Char('-')) ? std::nullopt : parseInteger(word);
}

/// Numbers count as such and stand before words.
std::strong_ordering compareWords(const QString &a, const QString &b)
{
    const auto numberA = asNumber(a);
    const auto numberB = asNumber(b);
    if (numberA && numberB)
        return *numberA <=> *numberB;
    if (numberA.has_value() != numberB.has_value())
        return numberA ? std::strong_ordering::less : std::strong_ordering::greater;
    return a.compare(b) <=> 0;
}

} // namespace

std::optional<Version> Version::parse(const QString &text)
{
    // Without leading zeros each version has one text alone, so that a folder's name tells it.
    static const QRegularExpression form(
        QStringLiteral("\\A(0|[1-9][0-9]{0,8})\\.(0|[1-9][0-9]{0,8})\\.(0|[1-9][0-9]{0,8})"
                       "(?:-((?:0|[1-9][0-9]{0,8}|[0-9]*[A-Za-z-][0-9A-Za-z-]*)"
                       "(?:\\.(?:0|[1-9][0-9]{0,8}|[0-9]*[A-Za-z-][0-9A-Za-z-]*))*))?\\z"));
    if (text.size() > longestVersion)
        return std::nullopt;
    const auto match = form.match(text);
    if (!match.hasMatch())
        return std::nullopt;
    Version version;
    for (int group = 1; group <= 3; ++group)
        version.m_numbers.append(match.captured(group).toLongLong());
    version.m_preRelease = match.captured(4).split(QLatin1Char('.'), Qt::SkipEmptyParts);
    return version;
}

QString Version::text() const
{
    QStringList numbers;
    for (const qint64 number : m_numbers)
        numbers.append(QString::number(number));
    const QString release = numbers.join(QLatin1Char('.'));
    return m_preRelease.isEmpty() ? release : release + QLatin1Char('-') + m_preRelease.join(QLatin1Char('.'));
}

std::strong_ordering Version::operator<=>(const Version &other) const
{
    const auto numbers = std::lexicographical_compare_three_way(m_numbers.begin(), m_numbers.end(),
                                                                other.m_numbers.begin(), other.m_numbers.end());
    if (numbers != 0)
        return numbers;
    if (m_preRelease.isEmpty() != other.m_preRelease.isEmpty())
        return m_preRelease.isEmpty() ? std::strong_ordering::greater : std::strong_ordering::less;
    return std::lexicographical_compare_three_way(m_preRelease.begin(), m_preRelease.end(), other.m_preRelease.begin(),
                                                  other.m_preRelease.end(), compareWords);
}

} // namespace ostrel
