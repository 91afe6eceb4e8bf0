#include "journal/JournalReader.h"

#include "base/Files.h"
#include "base/Paths.h"
#include "journal/JournalDayParser.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QStringDecoder>

#include <algorithm>
#include <functional>
#include <utility>

namespace ostrel {

namespace {

constexpr QLatin1String extension(".md");

/// Whether a text has the form of a date; 9999-99-99 has.
bool isDateKey(const QString &text)
{
    static const QRegularExpression form(QStringLiteral("^\\d{4}-\\d{2}-\\d{2}$"));
    return form.match(text).hasMatch();
}

/// Strictly: one wrong byte makes it no text at all. A byte order mark in front, as some editors leave it, is dropped,
/// or it would hide the first line's heading.
std::optional<QString> decodeUtf8(const QByteArray &bytes)
{
    QStringDecoder decode(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decode(bytes);
    return decode.hasError() ? std::nullopt : std::optional(std::move(text));
}

} // namespace

JournalReader::JournalReader(QString outputDirectory) : m_outputDirectory(std::move(outputDirectory)) {}

QList<JournalDay> JournalReader::readDays(qint64 limit) const
{
    QList<JournalDay> days;
    for (const QString &dateKey : dateKeys().mid(0, std::max<qint64>(limit, 0))) {
        if (auto day = readDay(dateKey))
            days.append(std::move(*day));
    }
    return days;
}

std::optional<JournalDay> JournalReader::readDay(const QString &dateKey) const
{
    // The key comes from a command line too: it must not lead out of the folder.
    if (m_outputDirectory.isEmpty() || !isDateKey(dateKey))
        return std::nullopt;
    const QString path = QDir(expandedPath(m_outputDirectory)).filePath(dateKey + extension);
    // A pipe of that name would block the reader for ever.
    if (!QFileInfo(path).isFile())
        return std::nullopt;
    const auto bytes = readFile(path);
    const auto text = bytes ? decodeUtf8(*bytes) : std::nullopt;
    return text ? std::optional(parseJournalDay(dateKey, *text)) : std::nullopt;
}

/// Newest first: keys of one width are ordered by time when they are ordered as text.
QStringList JournalReader::dateKeys() const
{
    // An empty path would be the working directory, which nobody has configured.
    if (m_outputDirectory.isEmpty())
        return {};
    const QDir directory(expandedPath(m_outputDirectory));
    QStringList keys;
    for (const QString &name : directory.entryList(QDir::AllEntries | QDir::Hidden | QDir::System, QDir::Unsorted)) {
        const QString key = name.chopped(std::min(extension.size(), name.size()));
        if (name.endsWith(extension) && isDateKey(key))
            keys.append(key);
    }
    std::sort(keys.begin(), keys.end(), std::greater<>());
    return keys;
}

} // namespace ostrel
