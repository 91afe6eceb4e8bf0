#include "app/ObserverStatusText.h"

#include "app/Json.h"

#include <QRegularExpression>

namespace ostrel {

namespace {

QString line(const QString &label, const QString &text)
{
    return QStringLiteral("%1 %2\n").arg(label, -12).arg(text);
}

QString timeText(const QDateTime &time, const QDateTime &now)
{
    const QDateTime local = time.toLocalTime();
    return local.toString(local.date() == now.toLocalTime().date() ? QStringLiteral("HH:mm:ss")
                                                                   : QStringLiteral("yyyy-MM-dd HH:mm:ss"));
}

/// When a session began, which is what its identifier is made of: "2026-11-21T09-30-05-1", in local time.
std::optional<QDateTime> beginOf(const std::optional<QString> &sessionId)
{
    static const QRegularExpression form(QStringLiteral("\\A(\\d{4}-\\d\\d-\\d\\dT\\d\\d-\\d\\d-\\d\\d)-\\d+\\z"));
    const auto match = form.match(sessionId.value_or(QString()));
    const auto begin = QDateTime::fromString(match.captured(1), QStringLiteral("yyyy-MM-dd'T'HH-mm-ss"));
    return begin.isValid() ? std::optional(begin) : std::nullopt;
}

QString stateText(const ObserverStatus &status, const QDateTime &now)
{
    const auto begin = beginOf(status.sessionId);
    if (status.running)
        return begin ? QStringLiteral("recording since %1").arg(timeText(*begin, now)) : QStringLiteral("recording");
    return begin ? QStringLiteral("idle; the last session began at %1").arg(timeText(*begin, now))
                 : QStringLiteral("idle");
}

QString lastChunkText(const ObserverStatus &status, const QDateTime &now)
{
    if (!status.lastChunkAt)
        return QStringLiteral("none yet");
    const QDateTime time = QDateTime::fromString(*status.lastChunkAt, Qt::ISODate);
    return QStringLiteral("number %1, at %2")
        .arg(status.chunkIndex)
        .arg(time.isValid() ? timeText(time, now) : *status.lastChunkAt);
}

QString backlogText(const ObserverStatus &status)
{
    const qint64 waiting = status.pendingAnalysisChunks.value_or(0);
    QString text = QStringLiteral("nothing waits to be analysed");
    if (waiting > 0)
        text = waiting == 1 ? QStringLiteral("1 chunk waits to be analysed")
                            : QStringLiteral("%1 chunks wait to be analysed").arg(waiting);
    if (!status.analysisBackfillBlocked.value_or(false))
        return text;
    return QStringLiteral("%1; blocked: %2")
        .arg(text, status.analysisBackfillLastError.value_or(QStringLiteral("no reason is known")));
}

} // namespace

QString statusText(const ObserverStatus &status, const QDateTime &now, const std::optional<QString> &recorderError)
{
    QString text = line(QStringLiteral("state"), stateText(status, now)) +
                   line(QStringLiteral("last chunk"), lastChunkText(status, now)) +
                   line(QStringLiteral("backlog"), backlogText(status));
    if (status.lastAction)
        text += line(QStringLiteral("last action"), *status.lastAction);
    if (recorderError)
        text += line(QStringLiteral("recorder"), *recorderError);
    return text + line(QStringLiteral("last error"), status.lastError.value_or(QStringLiteral("none")));
}

QJsonObject statusJson(const ObserverStatus &status)
{
    return {{QStringLiteral("running"), status.running},
            {QStringLiteral("sessionId"), orNull(status.sessionId)},
            {QStringLiteral("chunkIndex"), status.chunkIndex},
            {QStringLiteral("lastAction"), orNull(status.lastAction)},
            {QStringLiteral("lastError"), orNull(status.lastError)},
            {QStringLiteral("lastChunkAt"), orNull(status.lastChunkAt)},
            {QStringLiteral("pendingAnalysisChunks"), orNull(status.pendingAnalysisChunks)},
            {QStringLiteral("analysisBackfillActive"), orNull(status.analysisBackfillActive)},
            {QStringLiteral("analysisBackfillBlocked"), orNull(status.analysisBackfillBlocked)},
            {QStringLiteral("analysisBackfillLastError"), orNull(status.analysisBackfillLastError)}};
}

} // namespace ostrel
