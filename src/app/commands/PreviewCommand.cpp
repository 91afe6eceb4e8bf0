#include "app/CommandLine.h"
#include "app/Json.h"
#include "app/ObserverSession.h"
#include "app/commands/Commands.h"
#include "base/Fault.h"
#include "base/Files.h"
#include "base/Text.h"

#include <QDateTime>
#include <QDir>
#include <QJsonArray>
#include <QRegularExpression>

#include <cerrno>

#include <sys/stat.h>

namespace ostrel {

namespace {

const QString commandName = QStringLiteral("preview");
const QString framesOption = QStringLiteral("frames");
const QString base64Key = QStringLiteral("base64");
const QString pictureKey = QStringLiteral("picture");
const QString framesKey = QStringLiteral("frames");

QString stringOf(const QJsonObject &object, const char *key)
{
    return object.value(QLatin1String(key)).toString();
}

/// "10:30:05.250", with the day where it isn't today.
QString timeOf(const QJsonObject &frame)
{
    const auto time = QDateTime::fromMSecsSinceEpoch(frame.value(QLatin1String("atMs")).toInteger());
    const bool isToday = time.date() == QDate::currentDate();
    return time.toString(isToday ? QStringLiteral("HH:mm:ss.zzz") : QStringLiteral("yyyy-MM-dd HH:mm:ss.zzz"));
}

QString frameLine(const QJsonObject &frame)
{
    const QJsonObject picture = frame.value(pictureKey).toObject();
    const bool isSent = frame.value(QLatin1String("isSent")).toBool();
    QString line = QStringLiteral("  %1  %2, %3 x %4, ")
                       .arg(timeOf(frame), escapedForTerminal(stringOf(frame, "displayLabel")))
                       .arg(frame.value(QLatin1String("width")).toInteger())
                       .arg(frame.value(QLatin1String("height")).toInteger());
    if (!picture.isEmpty())
        line += QStringLiteral("%1, %2 bytes")
                    .arg(escapedForTerminal(stringOf(picture, "name")))
                    .arg(picture.value(QLatin1String("bytes")).toInteger());
    else
        line += isSent ? QStringLiteral("text only") : QStringLiteral("left out");
    const QString why = stringOf(frame, "leftOut");
    return why.isEmpty() ? line : QStringLiteral("%1: %2").arg(line, escapedForTerminal(why));
}

QString indented(const QString &text)
{
    QStringList lines;
    for (const QString &line : text.split(u'\n'))
        lines.append(QStringLiteral("  ") + escapedForTerminal(line));
    return lines.join(u'\n');
}

QString promptText(const QJsonObject &preview)
{
    QString text = QStringLiteral("\nInstructions:\n%1\n\nPrompt:\n").arg(indented(stringOf(preview, "instructions")));
    for (const auto &part : preview.value(QLatin1String("prompt")).toArray())
        text += indented(part.toString()) + u'\n';
    return text;
}

QString asText(const QJsonObject &preview)
{
    const QJsonObject recipient = preview.value(QLatin1String("recipient")).toObject();
    const QString reason = stringOf(preview, "reason");
    QString text;
    if (!recipient.isEmpty())
        text +=
            QStringLiteral("to      %1 (%2)\nmodel   %3\n")
                .arg(escapedForTerminal(stringOf(recipient, "host")), escapedForTerminal(stringOf(recipient, "url")),
                     escapedForTerminal(stringOf(recipient, "model")));
    if (!reason.isEmpty())
        text += recipient.isEmpty() ? escapedForTerminal(reason) + u'\n'
                                    : QStringLiteral("waits   %1\n").arg(escapedForTerminal(reason));
    const QJsonArray frames = preview.value(framesKey).toArray();
    if (!frames.isEmpty())
        text += QStringLiteral("frames  %1\n").arg(frames.size());
    for (const auto &frame : frames)
        text += frameLine(frame.toObject()) + u'\n';
    return recipient.isEmpty() ? text : text + promptText(preview);
}

/// Without the pictures' contents, which may be megabytes.
QJsonObject withoutContents(QJsonObject preview)
{
    QJsonArray frames;
    for (const auto &value : preview.value(framesKey).toArray()) {
        QJsonObject frame = value.toObject();
        QJsonObject picture = frame.value(pictureKey).toObject();
        picture.remove(base64Key);
        frame.insert(pictureKey, picture.isEmpty() ? QJsonValue() : QJsonValue(picture));
        for (const QString &key : {QStringLiteral("text"), QStringLiteral("leftOut")}) {
            if (!frame.contains(key))
                frame.insert(key, QJsonValue());
        }
        frames.append(frame);
    }
    preview.insert(framesKey, frames);
    for (const QString &key : {QStringLiteral("reason"), QStringLiteral("recipient"), QStringLiteral("instructions"),
                               QStringLiteral("request")}) {
        if (!preview.contains(key))
            preview.insert(key, QJsonValue());
    }
    return preview;
}

/// Makes the folder, readable by the user alone; a folder that is there has to be empty, so that nothing in it is taken
/// for a picture of this preview.
Result<> makeFolder(const QString &path)
{
    const QByteArray name = QFile::encodeName(path);
    if (::mkdir(name.constData(), S_IRWXU) != 0 && errno != EEXIST)
        return std::unexpected(fileError(errno, path));
    const QDir folder(path);
    if (!folder.isEmpty(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot))
        return std::unexpected(fileError(ENOTEMPTY, path));
    if (::chmod(name.constData(), S_IRWXU) != 0)
        return std::unexpected(fileError(errno, path));
    return {};
}

/// @return how many were written
Result<int> writePictures(const QJsonObject &preview, const QString &folder)
{
    if (auto made = makeFolder(folder); !made)
        return std::unexpected(made.error());
    static const QRegularExpression plainName(QStringLiteral("\\A[0-9]+-[0-9]+\\.(?:jpg|img)\\z"));
    int count = 0;
    for (const auto &frame : preview.value(framesKey).toArray()) {
        const QJsonObject picture = frame[pictureKey].toObject();
        const QString name = stringOf(picture, "name");
        if (!plainName.match(name).hasMatch())
            continue;
        const QByteArray bytes = QByteArray::fromBase64(picture.value(base64Key).toString().toLatin1());
        if (auto written = writeNewFile(folder + u'/' + name, bytes); !written)
            return std::unexpected(written.error());
        ++count;
    }
    return count;
}

CommandResult run(const QCommandLineParser &parser, const Platform &platform)
{
    const QString folder = parser.value(framesOption);
    if (parser.isSet(framesOption) && folder.isEmpty())
        return usageError(commandName, QStringLiteral("--frames takes a folder."));
    const auto session = ObserverSession::open(platform);
    if (!session)
        return CommandResult::failure(ExitFailed, session.error());
    const auto preview = (*session)->preview(!folder.isEmpty());
    if (!preview)
        return CommandResult::failure(ExitFailed, preview.error().localizedDescription);
    CommandResult result = CommandResult::data(
        parser.isSet(jsonOption()) ? jsonDocument(withoutContents(preview->record)) : asText(preview->record));
    if (folder.isEmpty())
        return result;
    const auto written = writePictures(preview->record, folder);
    if (!written)
        return CommandResult::failure(ExitFailed, written.error().localizedDescription);
    result.messages = QStringLiteral("%1 pictures are in %2.\n").arg(*written).arg(folder);
    return result;
}

} // namespace

Command previewCommand()
{
    return {.name = commandName,
            .description = QStringLiteral("Shows what would be sent to a model next, and to whom. Sends nothing."),
            .arguments = {},
            .options = {{framesOption,
                         QStringLiteral("Write the pictures, as they would be sent, into a new or empty folder."),
                         QStringLiteral("DIR")},
                        jsonOption()},
            .run = run};
}

} // namespace ostrel
