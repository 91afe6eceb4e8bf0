#include "model/StatusTexts.h"

#include "base/Paths.h"
#include "base/Text.h"
#include "model/InferenceSettings.h"

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
    if (usesGoogleVertex(settings))
        return QStringLiteral("BYOK active");
    return std::nullopt;
}

QString byokInferenceStatusText(const ObserverSettings &draft)
{
    if (!usesGoogleVertex(draft))
        return QStringLiteral("Ostrel managed");
    if (draft.byokGoogleVertexAuthMode == VertexAuthMode::serviceAccount)
        return QStringLiteral("BYOK Vertex - service account");
    return QStringLiteral("BYOK Vertex - API key");
}

QString byokInferenceDetailText(const ObserverSettings &draft)
{
    if (!usesGoogleVertex(draft))
        return QStringLiteral("Route inference directly to your Vertex AI account");
    if (draft.byokGoogleVertexAuthMode == VertexAuthMode::serviceAccount) {
        const QString path = trimmedBlanksAndNewlines(draft.byokGoogleVertexServiceAccountPath);
        return path.isEmpty() ? QStringLiteral("Service account JSON not selected.") : QStringLiteral("Using ") + path;
    }
    if (trimmedBlanksAndNewlines(draft.byokGoogleVertexApiKey).isEmpty())
        return QStringLiteral("API key not saved.");
    return QStringLiteral("API key saved in Keychain.");
}

QString secretNotRemoved(const QString &key)
{
    return QStringLiteral("%1 could not be removed from where secrets are kept. Is the keyring locked?").arg(key);
}

QString lastPicturesNotDelivered()
{
    return QStringLiteral("The observer did not take the last pictures in time; they may be lost.");
}

QString captureDidNotAnswer()
{
    return QStringLiteral("The screen did not answer when the recording ended. What was recorded before is kept.");
}

QString observerEnded()
{
    return QStringLiteral(
        "The observer ended unexpectedly, and the recording with it. Frames that it had not taken over "
        "yet are lost; those that it had are safe and are written when it runs next.");
}

} // namespace ostrel::StatusTexts
