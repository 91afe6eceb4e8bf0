#include "model/StatusTexts.h"

#include "base/Paths.h"
#include "base/Text.h"

namespace ostrel::StatusTexts {

namespace {

QString abbreviatingHome(QString path)
{
    const QString home = homeDirectory();
    // Where the home folder is "/", every slash would become "~".
    return home.size() > 1 ? path.replace(home, QStringLiteral("~")) : path;
}

} // namespace

QString recordButtonTitle(bool recording, bool restartPending)
{
    if (recording)
        return QStringLiteral("Stop recording");
    return restartPending ? QStringLiteral("Loading...") : QStringLiteral("Start recording");
}

std::optional<QString> visibleHelperError(const std::optional<QString> &helperError)
{
    return helperError && !helperError->isEmpty() ? helperError : std::nullopt;
}

std::optional<QString> analysisBackfillNotice(const std::optional<ObserverStatus> &status)
{
    if (!status)
        return std::nullopt;
    if (status->analysisBackfillBlocked.value_or(false)) {
        const QString reason = trimmedBlanksAndNewlines(status->analysisBackfillLastError.value_or(QString()));
        return reason.isEmpty() ? QStringLiteral("Backfill blocked") : reason;
    }
    if (status->analysisBackfillActive.value_or(false))
        return QStringLiteral("Backfill pending");
    return std::nullopt;
}

RecorderSubtext recorderSubtext(const std::optional<QString> &helperError, const std::optional<ObserverStatus> &status,
                                const ObserverSettings &settings)
{
    if (const auto message = visibleHelperError(helperError))
        return {.text = *message, .kind = RecorderSubtext::Kind::HelperError};
    if (const auto notice = analysisBackfillNotice(status))
        return {.text = *notice, .kind = RecorderSubtext::Kind::BackfillNotice};
    if (status && status->lastError && !status->lastError->isEmpty())
        return {.text = *status->lastError, .kind = RecorderSubtext::Kind::ObserverError};
    return {.text = abbreviatingHome(settings.outputDirectory), .kind = RecorderSubtext::Kind::OutputDirectory};
}

std::optional<QString> recordingProviderIndicatorText(const ObserverSettings &settings)
{
    if (settings.inferenceProvider == QLatin1String("google_vertex_ai"))
        return QStringLiteral("BYOK active");
    return std::nullopt;
}

QString lastPicturesNotDelivered()
{
    return QStringLiteral("The observer did not take the last pictures in time; they may be lost.");
}

QString observerEnded()
{
    return QStringLiteral(
        "The observer ended unexpectedly, and the recording with it. Frames that it had not taken over "
        "yet are lost; those that it had are safe and are written when it runs next.");
}

} // namespace ostrel::StatusTexts
