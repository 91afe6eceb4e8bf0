#pragma once

#include "base/AsyncLock.h"
#include "base/Error.h"
#include "base/Task.h"
#include "base/TaskScope.h"
#include "observer/ObserverSettings.h"
#include "observer/SettingsStore.h"

#include <QString>
#include <expected>
#include <functional>
#include <optional>
#include <stop_token>

namespace ostrel {

class ModelState;
class ObserverControl;
class SerialQueue;

/// Why a setting was not changed.
struct SettingFailure {
    enum class Kind {
        Refused,  ///< it can't have this value
        NotSaved, ///< the settings could not be written
    };
    Kind kind = Kind::Refused;
    QString words; ///< a sentence for the user, without the value of a secret

    bool operator==(const SettingFailure &) const = default;
};

/// Saves settings and takes them over: the file and the secret store first, then the model's state, then the observer.
/// Main thread, which it never blocks.
///
/// One save at a time, in the order of asking. A save that was begun runs to its end whatever becomes of its caller,
/// except that destruction lets go of it: the store then finishes it alone.
class SettingsEditing
{
public:
    struct Dependencies {
        ModelState &state;
        ObserverControl &observer;
        SettingsStore &store; ///< used on `queue`
        SerialQueue &queue;
        /// Ends the recording under way, if there is one, then calls a function before another can begin.
        std::function<Task<>(std::function<void()> act, std::stop_token stop)> betweenRecordings;
    };

    /// What the dependencies name outlives this object.
    explicit SettingsEditing(Dependencies dependencies);
    SettingsEditing(const SettingsEditing &) = delete;
    SettingsEditing &operator=(const SettingsEditing &) = delete;
    ~SettingsEditing();

    /// Saves the settings, makes them and the working copy `next`, and tells the observer, which is not waited for. A
    /// new port restarts the observer instead, and that ends a recording. Secrets that are as they were are left alone
    /// in their store, which may be one that could not be read. What is edited in the working copy while this is under
    /// way stays there, unsaved.
    /// @return false when they could not be saved: the helper error says why, and nothing else has changed. It also
    ///         says when a secret could not be removed; all else is saved then.
    Task<bool> saveSettings(ObserverSettings next);
    /// The same where `byokGoogleVertexApiKey` has just been decided on: an empty one is removed from its store even if
    /// it was empty before, which may only mean that it could not be read.
    Task<bool> saveByokSettings(ObserverSettings next);

    /// Changes one setting, as `saveSettings` does, by the rules of SettingRules. Unsaved changes of the other settings
    /// stay in the working copy.
    Task<std::expected<SavedSettings, SettingFailure>> changeSetting(QString key, QString value);

    /// From now on saving still saves, but the observer, which is about to end, is left as it is.
    void close() { m_closed = true; }
    /// Waits for the saves that were asked for before.
    Task<> finish(std::stop_token stop);

private:
    enum class ByokKey { LeftAloneIfUnchanged, Decided };

    Task<bool> save(ObserverSettings next, ByokKey key);
    Task<std::optional<Result<SavedSettings>>> store(ObserverSettings settings);
    void noteFailure(const QString &words);
    void takeOver(const ObserverSettings &next, const ObserverSettings &draft);
    void clearResolvedByokPathErrorIfNeeded(const ObserverSettings &next);
    Task<> tellObserver(ObserverSettings next, std::stop_token stop);
    Task<> moveObserver(std::stop_token stop);

    const Dependencies m_with;
    bool m_closed = false;
    std::optional<QString> m_failure; ///< the helper error of our own making
    AsyncLock m_saving;
    AsyncLock m_telling;
    std::stop_source m_life;
    TaskScope m_tasks;
};

} // namespace ostrel
