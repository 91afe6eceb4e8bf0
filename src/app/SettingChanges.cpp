#include "app/SettingChanges.h"

#include "app/RecorderLock.h"
#include "base/Fault.h"
#include "model/AppModel.h"
#include "model/StatusTexts.h"
#include "observer/SettingRules.h"
#include "observer/SettingsStore.h"

namespace ostrel {

namespace {

using Outcome = SettingAnswer::Outcome;

SettingAnswer answerFor(const SavedSettings &saved, const QString &key, Outcome outcome)
{
    if (saved.secretsNotRemoved.contains(key))
        return {.outcome = Outcome::NotSaved, .words = StatusTexts::secretNotRemoved(key)};
    if (!saved.damagedFileKeptAs)
        return {.outcome = outcome, .words = {}};
    return {.outcome = outcome,
            .words = QStringLiteral("The settings file could not be understood, so a new one was begun. The old one is "
                                    "kept as \"%1\".")
                         .arg(*saved.damagedFileKeptAs)};
}

/// When a running model makes use of a setting that has changed.
Outcome effectOf(const QString &key, const ObserverSettings &before, const ObserverSettings &after, bool recording)
{
    if (!recording)
        return Outcome::AtOnce;
    if (before.localPort != after.localPort)
        return Outcome::RecordingEnds;
    // The recorder reads these two when it starts.
    const bool isRecorders = key == QLatin1String("frameFps") || key == QLatin1String("chunkSizeMs");
    return isRecorders ? Outcome::NextRecording : Outcome::AtOnce;
}

} // namespace

Task<SettingAnswer> changeInModel(AppModel *model, SettingChange change)
{
    const ObserverSettings before = model->settings();
    ObserverSettings after = before;
    static_cast<void>(SettingRules::assign(after, change.key, change.value));
    const Outcome effect = effectOf(change.key, before, after, model->isRecordingUnderWay());
    const auto saved = co_await model->changeSetting(change.key, change.value);
    if (saved)
        co_return answerFor(*saved, change.key, effect);
    const bool refused = saved.error().kind == SettingFailure::Kind::Refused;
    co_return {.outcome = refused ? Outcome::Refused : Outcome::NotSaved, .words = saved.error().words};
}

std::optional<SettingAnswer> changeOnDisk(SecretStore &secrets, const SettingChange &change)
{
    bool recorderRuns = false;
    std::optional<QString> refusal;
    const auto edit = [&](ObserverSettings &settings) -> Result<> {
        // A recorder takes its lock before it reads the settings, and reads them when it is its turn. So one that is
        // not there yet will read what is written now.
        recorderRuns = RecorderLock::holder().has_value();
        if (recorderRuns)
            return std::unexpected(faultError(Fault::Cancelled));
        if (const auto fits = SettingRules::assign(settings, change.key, change.value); !fits) {
            refusal = fits.error();
            return std::unexpected(faultError(Fault::Cancelled));
        }
        return {};
    };
    const auto saved = SettingsStore(secrets).change(edit);
    if (recorderRuns)
        return std::nullopt;
    if (refusal)
        return SettingAnswer{.outcome = Outcome::Refused, .words = *refusal};
    if (!saved)
        return SettingAnswer{.outcome = Outcome::NotSaved, .words = saved.error().localizedDescription};
    return answerFor(*saved, change.key, Outcome::AtOnce);
}

} // namespace ostrel
