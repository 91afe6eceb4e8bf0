#pragma once

#include "base/AsyncLock.h"
#include "base/Task.h"
#include "base/TaskScope.h"
#include "base/TaskSlot.h"
#include "model/CaptureNews.h"
#include "model/ObserverControl.h"
#include "model/ObserverStart.h"

#include <QObject>
#include <QString>
#include <expected>
#include <functional>
#include <optional>
#include <stop_token>

namespace ostrel {

class ModelState;
class PermissionsArea;
class ScreenCaptureRecorder;

/// Why a recording, or the attempt to start one, is over.
enum class RecordingEnd {
    Requested,       ///< the user stopped it, or the program ends
    StartFailed,     ///< it never ran; the helper error says why
    CaptureFailed,   ///< frames could no longer be taken or delivered; the helper error says why
    ObserverStopped, ///< the observer runs on but records no more, or was started anew on our word
    ObserverEnded,   ///< the observer ended by itself; the helper error says what that means
};

/// Starts and stops a recording on both sides, the observer's and our own capture, so that neither runs without the
/// other for longer than it takes to notice. Main thread.
///
/// Starts and endings wait for each other: an ending cancels a start under way, but never in the middle of a request to
/// the observer, whose outcome would then be unknown. Endings run to their end. In between, capture may be interrupted
/// and started again by whoever recovers it: the recording goes on.
class RecordingControl : public QObject
{
    Q_OBJECT

public:
    struct Dependencies {
        ModelState &state;
        ObserverControl &observer;
        PermissionsArea &permissions;
        ScreenCaptureRecorder &recorder;
    };

    /// Takes the recorder's callbacks. What the dependencies name outlives this object.
    explicit RecordingControl(Dependencies dependencies);
    ~RecordingControl() override;

    /// The record button. A press while a start is under way changes nothing; one during a stop asks for a recording
    /// after it.
    void toggleRecording();
    /// Ends the recording, or the start of one: capture with its final flush, then the observer. Also gives up a
    /// recording that was to follow a stop under way.
    void stopRecording();
    /// Ends capture with its final flush in the background, without a word to the observer. Without a recording nothing
    /// happens.
    void stopCapture();
    /// The same, to be awaited; the recording goes on without capture.
    Task<> suspendCapture(std::stop_token stop);
    /// Starts capture of the recording again, with the settings in force; one that runs is ended first, with its flush.
    /// A stop ends the wait for its turn, but not a start that has begun.
    /// @return the recorder's error; Fault::Cancelled without a recording, or when it has not begun
    Task<Result<>> resumeCapture(std::stop_token stop);
    /// Ends the recording, on both sides, because its capture can't be had any more.
    void giveUp(const QString &message);
    /// Ends the recording, if there is one, as `stopRecording` does, and then calls a function before another begins.
    Task<> betweenRecordings(std::function<void()> act, std::stop_token stop);
    /// Ends everything, as `stopRecording` does, and starts nothing any more. An ending that was abandoned is not
    /// waited for.
    Task<> close(std::stop_token stop);
    /// Calls whatever is being ended ended. What has not been delivered by now is lost, and said to be.
    void abandonEnding();

    /// What capture says of a recording that goes on.
    const CaptureNews &captureNews() const { return m_news; }

    /// Whether what captures did not answer, and is not waited for, since capture was started last.
    bool hasLeftScreenBehind() const;

    /// The observer reported that it records no more.
    void observerStopped();

    /// Whether there is a recording that has not begun to end, whatever its capture does.
    bool isCapturing() const { return m_phase == Phase::Capturing; }
    /// Whether there is a recording, or a start, that has not begun to end.
    bool isUnderWay() const { return m_starting || m_phase == Phase::Preparing || m_phase == Phase::Capturing; }
    bool stoppingRecording() const { return m_stoppingRecording; }
    bool pendingRecordingRestart() const { return m_pendingRecordingRestart; }

Q_SIGNALS:
    void stoppingRecordingChanged();
    void pendingRecordingRestartChanged();
    void startBegun();
    void endingBegun();
    /// A start of capture has ended, well or not.
    void captureStartEnded();
    /// Both sides run.
    void recordingStarted();
    /// Both sides are stopped, as far as they could be reached.
    void recordingEnded(ostrel::RecordingEnd reason);

private:
    enum class Phase { Idle, Preparing, Capturing, Ending };
    enum class ObserverStop { Ask, AskIfRunning, Leave };
    struct Ending {
        RecordingEnd reason = RecordingEnd::Requested;
        bool skipFlush = false;
        ObserverStop observer = ObserverStop::Ask;
        std::optional<QString> message = {}; ///< the helper error in the end
        bool refreshesStatus = false;        ///< in the end, whatever the observer answered
        bool announced = true;
    };

    void beginStart();
    Task<> startRecording(std::stop_token stop);
    Task<std::expected<void, StartFailure>> startBothSides(std::stop_token stop);
    Task<Result<>> startCapture();
    void beginEnding(Ending ending);
    Task<> runEnding(Ending ending, std::stop_token stop);
    void finish(Ending ending);
    void noteObserverEnded();
    void captureFailed(const QString &message, Ending ending);
    void setStoppingRecording(bool stopping);
    void setPendingRecordingRestart(bool pending);

    const Dependencies m_with;
    ObserverStart m_observerStart;
    const CaptureNews m_news;
    Phase m_phase = Phase::Idle;
    bool m_starting = false; ///< a start was asked for and is neither done nor given up
    bool m_closed = false;
    bool m_failedWhileEnding = false;
    bool m_endIsDue = false;       ///< a recording, or its start, has not been announced as ended yet
    bool m_captureIsAtRest = true; ///< nothing of this recording is left to be delivered
    bool m_isAbandoned = false;    ///< an ending that has the turn
    bool m_stoppingRecording = false;
    bool m_pendingRecordingRestart = false;
    AsyncLock m_turn;
    std::stop_source m_life; ///< what a cancelled start still has to finish ends with this object only
    TaskSlot m_start;
    TaskScope m_endings;
};

} // namespace ostrel
