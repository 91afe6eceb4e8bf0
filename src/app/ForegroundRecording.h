#pragma once

#include "app/EndingLimit.h"
#include "app/ModelHost.h"
#include "app/Platform.h"
#include "app/TerminationSignals.h"
#include "base/TaskScope.h"

#include <QEventLoop>
#include <QString>
#include <chrono>
#include <optional>

namespace ostrel {

/// One recording from a terminal: the model without a window, from its start to its last flush.
class ForegroundRecording
{
public:
    /// @param duration how long to record, counted from the recorder's start; nothing means until a signal comes
    ForegroundRecording(const Platform &platform, std::optional<std::chrono::seconds> duration);

    /// Records until the time is over, SIGINT, SIGTERM or SIGHUP comes, or recording is no longer possible. Says on
    /// standard error what happens.
    /// @return the exit status: 1 when it could not start, capture or the observer ended by itself, or no picture came
    int run();

private:
    void end(EndingPace pace);
    Task<> start(std::stop_token stop);
    void onStarted();
    void onEnded(RecordingEnd reason);
    void noteNoPicture(const QString &why);
    void onStatus();
    void finish();
    Task<> stopAfter(std::chrono::seconds duration, std::stop_token stop);
    Task<> explainDelay(QString delay, std::stop_token stop);
    Task<> writeLeftovers(std::stop_token stop);
    Task<> printSummaryAndLeave(std::stop_token stop);
    QString failureText(RecordingEnd reason);

    const EndingLimit m_endingLimit; // goes last
    const std::optional<std::chrono::seconds> m_duration;
    QEventLoop m_loop;
    bool m_started = false;
    bool m_observerEnded = false;
    bool m_isEnding = false; ///< because of a signal
    bool m_isPrompt = false; ///< there is no time for what the next recording can do as well
    int m_status = 0;
    qint64 m_port = 0; ///< the observer's, when the recording was asked for
    /// What the observer's last status complained of.
    QString m_complaint;
    ModelHost m_host;
    TaskScope m_tasks;
};

} // namespace ostrel
