#include "app/ForegroundRecording.h"

#include "app/CommandLine.h"
#include "app/RecordingProgram.h"
#include "base/Paths.h"

namespace ostrel {

namespace {

QString endedBeforeItBegan()
{
    return QStringLiteral("The recording ended before it had begun.");
}

} // namespace

ForegroundRecording::ForegroundRecording(const Platform &platform, std::optional<std::chrono::seconds> duration)
    : m_duration(duration),
      m_host(platform, [this] { finish(); }, {}, [this](qint64 lost) { endWithoutCapture(lost, m_status); })
{}

int ForegroundRecording::run()
{
    const TerminationSignals signals([this](EndingPace pace) { end(pace); }, endAtOnce);
    m_tasks.spawn([this](std::stop_token stop) { return start(stop); });
    m_loop.exec();
    return m_status;
}

void ForegroundRecording::end(EndingPace pace)
{
    if (!m_host.isStarted()) {
        noteNoPicture(endedBeforeItBegan());
        return m_loop.quit();
    }
    if (pace == EndingPace::Prompt)
        m_host.model().quitBeforeShutdown();
    else
        m_host.model().quit();
    if (!m_isEnding)
        m_tasks.spawn([this](std::stop_token stop) {
            return explainDelay(QStringLiteral("Waiting for the observer to finish."), stop);
        });
    m_isEnding = true;
    m_isPrompt = pace == EndingPace::Prompt;
}

Task<> ForegroundRecording::start(std::stop_token stop)
{
    co_await m_host.start(stop);
    if (stop.stop_requested())
        co_return;
    QObject::connect(&m_host.model(), &AppModel::recordingStarted, &m_loop, [this] { onStarted(); });
    QObject::connect(&m_host.model(), &AppModel::recordingEnded, &m_loop,
                     [this](RecordingEnd reason) { onEnded(reason); });
    QObject::connect(&m_host.model(), &AppModel::statusChanged, &m_loop, [this] { onStatus(); });
    QObject::connect(&m_host.model(), &AppModel::captureStalled, &m_loop, [](const QString &message) {
        printMessage(QStringLiteral("ostrel: %1. The recording goes on as soon as the screen answers.\n").arg(message));
    });
    m_port = m_host.model().settings().localPort;
    m_host.model().toggleRecording();
}

void ForegroundRecording::onStarted()
{
    m_started = true;
    const QString folder = abbreviatedPath(expandedPath(m_host.model().settings().outputDirectory));
    printMessage(QStringLiteral("Recording into %1. Ctrl+C stops.\n").arg(folder));
    if (!m_host.model().permissions().fileAccessAuthorized)
        printMessage(
            QStringLiteral("ostrel: The journal's folder \"%1\" cannot be written; what is recorded waits until "
                           "it can.\n")
                .arg(folder));
    if (m_duration)
        m_tasks.spawn([this, duration = *m_duration](std::stop_token stop) { return stopAfter(duration, stop); });
}

Task<> ForegroundRecording::stopAfter(std::chrono::seconds duration, std::stop_token stop)
{
    const bool elapsed = co_await m_host.clock().sleepFor(duration, stop);
    if (elapsed)
        m_host.model().quit();
}

Task<> ForegroundRecording::explainDelay(QString delay, std::stop_token stop)
{
    constexpr std::chrono::seconds patience{2};
    if (co_await m_host.clock().sleepFor(patience, stop))
        printMessage(delay + QStringLiteral(" A second signal ends at once.\n"));
}

void ForegroundRecording::onEnded(RecordingEnd reason)
{
    const qint64 port = m_host.model().settings().localPort;
    if (reason == RecordingEnd::Requested && port != m_port)
        printMessage(QStringLiteral("The observer's port was changed to %1, which ends this recording.\n").arg(port));
    if (reason != RecordingEnd::Requested) {
        m_status = ExitFailed;
        m_observerEnded = reason == RecordingEnd::ObserverEnded;
        printMessage(QStringLiteral("ostrel: %1\n").arg(failureText(reason)));
    }
    const auto whyNoPicture = m_host.model().whyNoPicture();
    if (reason == RecordingEnd::Requested && whyNoPicture)
        noteNoPicture(m_started ? *whyNoPicture : endedBeforeItBegan());
    m_host.model().quit();
}

/// Whoever asked for the end need not know that nothing came of the recording.
void ForegroundRecording::noteNoPicture(const QString &why)
{
    m_status = ExitFailed;
    printMessage(QStringLiteral("ostrel: No picture was recorded: %1\n").arg(why));
}

void ForegroundRecording::onStatus()
{
    // The recording goes on, but the journal would stay empty and nobody would know why.
    const AppModel &model = m_host.model();
    const auto &status = model.status();
    // What the observer says of a recording that has ended is for the next one to be told.
    const bool goesOn = status && status->running;
    QString complaint;
    if (goesOn && status->analysisBackfillBlocked.value_or(false))
        complaint = model.analysisBackfillNotice().value_or(QString());
    else if (goesOn)
        complaint = status->lastError.value_or(QString());
    if (complaint != m_complaint && !complaint.isEmpty())
        printMessage(QStringLiteral("ostrel: the observer says: %1\n").arg(complaint));
    m_complaint = complaint;
}

QString ForegroundRecording::failureText(RecordingEnd reason)
{
    const AppModel &model = m_host.model();
    const auto &status = model.status();
    if (reason == RecordingEnd::ObserverStopped)
        return QStringLiteral("The observer ended the recording%1")
            .arg(status && status->lastError ? QStringLiteral(": %1").arg(*status->lastError) : QStringLiteral("."));
    return model.helperError().value_or(QStringLiteral("The recording ended by itself."));
}

void ForegroundRecording::finish()
{
    m_tasks.spawn([this](std::stop_token stop) { return printSummaryAndLeave(stop); });
}

Task<> ForegroundRecording::printSummaryAndLeave(std::stop_token stop)
{
    if (m_started)
        printMessage(m_host.model().diagnosticSummary() + QLatin1Char('\n'));
    // What the observer had taken over need not wait for the next recording, where there is time.
    if (m_observerEnded && !m_isPrompt) {
        co_await writeLeftovers(stop);
        if (stop.stop_requested())
            co_return;
    }
    m_loop.quit();
}

Task<> ForegroundRecording::writeLeftovers(std::stop_token stop)
{
    m_tasks.spawn([this](std::stop_token delayStop) {
        return explainDelay(QStringLiteral("Writing what the observer had taken over."), delayStop);
    });
    const bool written = co_await m_host.model().writeLeftovers(stop);
    if (!stop.stop_requested() && !written)
        printMessage(QStringLiteral("ostrel: what the observer had taken over could not be written now; it is written "
                                    "with the next recording\n"));
}

} // namespace ostrel
