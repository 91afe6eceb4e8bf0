#include "app/Json.h"
#include "app/ListedDisplays.h"
#include "app/commands/Commands.h"
#include "capture/CaptureError.h"
#include "capture/DisplayList.h"

#include <QJsonArray>
#include <QJsonObject>

namespace ostrel {

namespace {

/// A pixel or a desktop coordinate without needless decimals.
QString number(double value)
{
    return QString::number(value, 'g', 10);
}

/// Nothing is drawn at a place of no size: the desktop tells none.
bool isPlaceTold(const CapturableDisplay &display)
{
    return !display.bounds.isEmpty();
}

QString placeOf(const CapturableDisplay &display)
{
    if (!isPlaceTold(display))
        return QStringLiteral("place unknown");
    return QStringLiteral("at %1,%2").arg(number(display.bounds.x()), number(display.bounds.y()));
}

QJsonValue boundsOf(const CapturableDisplay &display)
{
    if (!isPlaceTold(display))
        return QJsonValue::Null;
    return QJsonObject{{QStringLiteral("x"), display.bounds.x()},
                       {QStringLiteral("y"), display.bounds.y()},
                       {QStringLiteral("width"), display.bounds.width()},
                       {QStringLiteral("height"), display.bounds.height()}};
}

QString asText(const QList<CapturableDisplay> &displays, quint32 mainDisplayId)
{
    QString text;
    for (qsizetype i = 0; i < displays.size(); ++i) {
        const CapturableDisplay &display = displays[i];
        text += QStringLiteral("%1  %2x%3 %4  id %5\n")
                    .arg(displayLabel(display.displayId, i, mainDisplayId), -18)
                    .arg(display.width)
                    .arg(display.height)
                    .arg(placeOf(display))
                    .arg(display.displayId);
    }
    return text;
}

QJsonArray asJson(const QList<CapturableDisplay> &displays, quint32 mainDisplayId)
{
    QJsonArray array;
    for (qsizetype i = 0; i < displays.size(); ++i) {
        const CapturableDisplay &display = displays[i];
        array.append(QJsonObject{{QStringLiteral("displayId"), QString::number(display.displayId)},
                                 {QStringLiteral("displayLabel"), displayLabel(display.displayId, i, mainDisplayId)},
                                 {QStringLiteral("width"), display.width},
                                 {QStringLiteral("height"), display.height},
                                 {QStringLiteral("bounds"), boundsOf(display)},
                                 {QStringLiteral("main"), display.displayId == mainDisplayId}});
    }
    return array;
}

CommandResult run(const QCommandLineParser &parser, const Platform &platform)
{
    const auto content = listedDisplays(platform.displays);
    if (!content)
        return CommandResult::failure(ExitFailed, content.error().localizedDescription);
    if (content->displays.isEmpty())
        return CommandResult::failure(ExitFailed, captureError(CaptureErrorCode::NoDisplay).localizedDescription);
    const auto displays = orderedDisplays(content->displays, content->mainDisplayId);
    if (parser.isSet(jsonOption()))
        return CommandResult::data(jsonDocument(asJson(displays, content->mainDisplayId)));
    return CommandResult::data(asText(displays, content->mainDisplayId));
}

} // namespace

Command displaysCommand()
{
    return {.name = QStringLiteral("displays"),
            .description = QStringLiteral("Lists the displays that a recording captures, in its order."),
            .arguments = {},
            .options = {jsonOption()},
            .run = run};
}

} // namespace ostrel
