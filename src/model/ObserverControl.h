#pragma once

#include "base/Error.h"
#include "base/Task.h"
#include "observer/HelperProcess.h"
#include "observer/WireRecords.h"

#include <QString>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>

namespace ostrel {

class Clock;
class HttpTransport;
class LocalObserverAPI;
class ModelState;
class ProcessLauncher;
class SerialQueue;

/// What the areas of the model ask of the observer: that its process runs, that it answers, and that it records or
/// stops. Keeps the helper error true to what it finds. Main thread.
///
/// Every task here ends inline when its token is stopped, and touches nothing afterwards; stop them before this object
/// goes.
class ObserverControl
{
public:
    /// Whose process the observer is.
    enum class Owner {
        Us,
        AnotherProgram, ///< it is used as it is found: never started, replaced or ended
    };

    struct Dependencies {
        Clock &clock;
        ModelState &state;
        ProcessLauncher &launcher;
        HttpTransport &transport;
        SerialQueue &worker; ///< builds and decodes large bodies
        QString localAPIToken;
        std::optional<QString> repoRoot; ///< the observer's folder, where one was found
        Owner owner = Owner::Us;
    };

    /// What it asks of the model around it. Set all three before anything else is called.
    struct Hooks {
        std::function<void(const ObserverStatus &)> applyObserverStatus;
        /// Starts to end capture with its final flush; does not wait.
        std::function<void()> stopCapture;
        /// Begins the polling afresh.
        std::function<void()> startPolling;
    };

    static constexpr int reachableAttempts = 30;

    explicit ObserverControl(Dependencies dependencies);
    ~ObserverControl();
    Hooks hooks;

    /// Makes sure that a child exists. A failure is also the helper error; success clears the helper error.
    Result<> startHelper();
    /// Makes the calls go to the port that the settings say now. Answers from the former one count no more.
    void useSettingsPort();
    /// Ends capture in the background, and at once replaces the child and begins the polling afresh.
    void restartHelper();
    /// Asks the child to end; does not wait.
    void stopHelper();

    /// Asks for the status once. An answer goes to `applyObserverStatus`, unless a start or stop was sent meanwhile:
    /// then it may be older than theirs. A failure starts a dead child again, at most once every 5 seconds.
    Task<> refreshStatus(std::stop_token stop);
    /// Asks for the status, 250 ms after each failure again, until it is answered.
    /// @return the last failure when all attempts failed, or at once for an address that can never work;
    ///         Fault::Cancelled when stopped
    Task<Result<>> waitUntilReachable(int attempts, std::stop_token stop);

    /// For a request that needs an observer: makes sure that there is one and waits until it answers. The answer
    /// becomes the model's status. Helper errors about other things stay on show.
    /// @return as `waitUntilReachable`; without a child, what has kept it from starting
    Task<Result<>> bringUp(std::stop_token stop);
    /// Why a request was refused. A refusal has only general words; the observer tells its reason in its status.
    /// @param error      what the request has failed with
    /// @param lastError  the observer's before the request; where it is still the same, it is no reason
    /// @return the error with the reason as its words, or as it was where the observer tells none
    Task<Error> withReason(Error error, std::optional<QString> lastError, std::stop_token stop);

    /// Tell the observer to record frames that we send it, or to stop. The answer becomes the model's status.
    Task<Result<ObserverStatus>> startRecording(std::stop_token stop);
    Task<Result<ObserverStatus>> stopRecording(std::stop_token stop);

    /// Whether the observer that the last start reached ended by itself: nobody listens any more, or a successor
    /// answers that doesn't know the recording. One that we have replaced or ended ourselves does not count.
    bool recordingObserverEnded() const { return m_recording && m_recording->observerEnded; }
    /// The recording is over on our side: what becomes of the observer now no longer concerns it.
    void forgetRecording() { m_recording.reset(); }

    /// Has a new observer write what one that ended by itself had taken over, then asks it to end. Gives up after 20
    /// seconds in all, and at once where none can be started; the next one that runs does the same work.
    /// @return whether it is written; false also when stopped
    Task<bool> writeLeftovers(std::stop_token stop);

    const std::shared_ptr<LocalObserverAPI> &api() const { return m_api; }

private:
    /// The recording that the observer was last told to start.
    struct Recording {
        std::optional<QString> sessionId; ///< none where the observer names none
        bool observerEnded = false;
    };

    std::shared_ptr<LocalObserverAPI> makeApi() const;
    Error withAddress(const Error &error) const;
    /// A status, and whether no start or stop was sent while it was on its way.
    struct Answer {
        ObserverStatus status;
        bool isCurrent = false;
    };

    Task<Result<Answer>> awaitAnswer(int attempts, std::stop_token stop);
    /// `startHelper`, but helper errors about other things stay on show.
    Result<> startHelperQuietly();
    void startHelperAgainIfDead();
    bool isOfOurMaking(const QString &message) const;
    void noteRecordingObserver(const Result<ObserverStatus> &answer);
    Task<> lookForRecordingObserver(std::shared_ptr<LocalObserverAPI> api, std::stop_token stop);
    Task<bool> askToWriteLeftovers(std::stop_token stop);
    void noteUnreachable(const Error &error);
    void noteReachable();
    void noteAnswered(const Result<ObserverStatus> &answer);

    const Dependencies m_with;
    HelperProcess m_helper;
    std::shared_ptr<LocalObserverAPI> m_api;
    qint64 m_lastHelperRestartMs = 0; ///< wall clock
    /// How often a start or stop was sent or answered; tells which status answers are out of date.
    qint64 m_commandEvents = 0;
    std::optional<Recording> m_recording;
    // The helper errors of our own making, to know which one is on show and when its cause is gone.
    std::optional<QString> m_startFailure;
    std::optional<QString> m_portTaken;
    std::optional<QString> m_waitFailure;
    std::optional<QString> m_reason; ///< of the last refusal
};

} // namespace ostrel
