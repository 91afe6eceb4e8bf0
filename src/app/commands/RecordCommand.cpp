#include "app/ForegroundRecording.h"
#include "app/RecordingProgram.h"
#include "app/commands/Commands.h"
#include "base/Text.h"
#include "capture/CaptureError.h"
#include "capture/DisplaySource.h"

namespace ostrel {

namespace {

const QString secondsOption = QStringLiteral("seconds");

/// Whether there is anything to record. Asked before anything is started or locked.
Result<> checkDisplays(DisplaySource &source)
{
    const auto content = source.shareableContent();
    if (!content)
        return std::unexpected(content.error());
    if (content->displays.isEmpty())
        return std::unexpected(captureError(CaptureErrorCode::NoDisplay));
    return {};
}

CommandResult run(const QCommandLineParser &parser, const Platform &platform)
{
    std::optional<std::chrono::seconds> duration;
    if (parser.isSet(secondsOption)) {
        const auto seconds = parseInteger(parser.value(secondsOption));
        constexpr qint64 longest = 1'000'000'000;
        if (!seconds || *seconds < 1 || *seconds > longest)
            return usageError(QStringLiteral("record"),
                              QStringLiteral("--seconds takes a whole number from 1 to %1, not \"%2\".")
                                  .arg(longest)
                                  .arg(parser.value(secondsOption)));
        duration = std::chrono::seconds(*seconds);
    }
    if (const auto displays = checkDisplays(platform.displays); !displays)
        return CommandResult::failure(ExitFailed, displays.error().localizedDescription);
    const auto lock = beginRecordingProgram();
    if (!lock)
        return CommandResult::failure(ExitFailed, lock.error().localizedDescription);
    return {.status = ForegroundRecording(platform, duration).run(), .output = {}, .messages = {}};
}

} // namespace

Command recordCommand()
{
    return {.name = QStringLiteral("record"),
            .description = QStringLiteral("Records in the foreground until Ctrl+C."),
            .arguments = {},
            .options = {{secondsOption, QStringLiteral("Stop after N seconds, counted from the first frame on."),
                         QStringLiteral("N")}},
            .run = run};
}

} // namespace ostrel
