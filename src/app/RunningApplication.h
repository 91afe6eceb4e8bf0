#pragma once

#include "base/Task.h"

#include <QString>

#include <expected>
#include <functional>

namespace ostrel {

/// One setting and its new value, which may be a secret.
struct SettingChange {
    QString key;
    QString value;
};

/// What became of a change.
struct SettingAnswer {
    enum class Outcome {
        AtOnce,        ///< saved, and in force
        NextRecording, ///< saved; the recording under way goes on without it
        RecordingEnds, ///< saved; it ends the recording under way
        Refused,       ///< the setting can't have this value
        NotSaved,      ///< the settings could not be written
    };
    Outcome outcome = Outcome::AtOnce;
    /// Sentences for the user: why not, or what else there is to tell. Never the value of a secret.
    QString words;

    bool operator==(const SettingAnswer &) const = default;
};

/// Why the program that records could not be asked.
enum class RemoteFailure {
    NoBus,          ///< there is no session bus
    NotThere,       ///< it is not on this session's bus
    NotTheRecorder, ///< somebody else has its name there; nothing was sent
    Silent,         ///< it has not answered in time; what was sent may have been done
    Broken,         ///< the conversation broke off, or made no sense
};

/// The program that records, as other programs of its user reach it.
class RunningApplication
{
public:
    virtual ~RunningApplication() = default;

    /// Has it change a setting. Nobody else sees the value. Blocks for five seconds at most; any thread.
    /// @param processId the process that must be the one that answers
    virtual std::expected<SettingAnswer, RemoteFailure> changeSetting(qint64 processId,
                                                                      const SettingChange &change) = 0;

    /// What is wrong, in the words that it shows to its user; empty while nothing is. Blocks for five seconds at most;
    /// any thread.
    /// @param processId as above
    virtual std::expected<QString, RemoteFailure> complaint(qint64 processId) = 0;

    /// Has it show its panel. Blocks for five seconds at most; any thread.
    /// @param processId as above
    /// @return false when it records in a terminal and has no panel
    virtual std::expected<bool, RemoteFailure> activate(qint64 processId) = 0;
};

/// The other end: lets other programs of the user reach this one. Main thread, which it never blocks.
class RemoteControl
{
public:
    using ChangeSetting = std::function<Task<SettingAnswer>(SettingChange change)>;
    /// What others may ask for. Called on the main thread; tasks may end after `close`.
    struct Calls {
        ChangeSetting changeSetting;
        std::function<QString()> complaint = {}; ///< what is wrong; says nothing, or isn't there, while nothing is
        std::function<void()> activate;          ///< shows the panel; empty where there is none
    };

    virtual ~RemoteControl() = default;

    /// Begins to listen, in the background. Where there is no way to listen, nobody calls.
    virtual void open(Calls calls) = 0;
    /// Calls no more. Answers that were given have left when this returns; it waits for a moment at most.
    virtual void close() = 0;
};

} // namespace ostrel
