#include "model/SettingsEditing.h"

#include "base/SerialQueue.h"
#include "model/InferenceSettings.h"
#include "model/ModelState.h"
#include "model/ObserverControl.h"
#include "model/StatusTexts.h"
#include "observer/LocalObserverAPI.h"
#include "observer/SettingRules.h"
#include "observer/SettingsFields.h"

#include <array>
#include <variant>

namespace ostrel {

namespace {

constexpr std::array secretFields{&ObserverSettings::analysisApiToken, &ObserverSettings::byokGoogleVertexApiKey};

/// What is handed to the store. A secret that could not be read is empty here, and saving it so would remove it.
ObserverSettings leavingSecretsAlone(ObserverSettings next, const ObserverSettings &current)
{
    for (const auto field : secretFields) {
        if (next.*field == current.*field)
            next.*field = SettingsStore::redacted;
    }
    return next;
}

using FieldValue = std::variant<QString, qint64, double, bool>;

QList<FieldValue> fieldValues(const ObserverSettings &settings)
{
    QList<FieldValue> values;
    eachSettingsField(settings, [&values](const char *, const auto &field) { values.append(FieldValue(field)); });
    return values;
}

/// The working copy after a save: what was saved, and on top of it what was edited meanwhile.
ObserverSettings withEdits(ObserverSettings saved, const ObserverSettings &draftBefore, const ObserverSettings &draft)
{
    const QList<FieldValue> before = fieldValues(draftBefore);
    const QList<FieldValue> now = fieldValues(draft);
    qsizetype index = 0;
    eachSettingsField(saved, [&]<class T>(const char *, T &field) {
        if (now[index] != before[index])
            field = std::get<T>(now[index]);
        ++index;
    });
    return saved;
}

/// What edits count from for a save that has waited for its turn: the working copy as it was when the save was asked
/// for, but for what the saves before it have brought.
ObserverSettings baseOfEdits(const ObserverSettings &whenAsked, ObserverSettings draft, const ObserverSettings &saved)
{
    const QList<FieldValue> asked = fieldValues(whenAsked);
    const QList<FieldValue> now = fieldValues(draft);
    const QList<FieldValue> known = fieldValues(saved);
    qsizetype index = 0;
    eachSettingsField(draft, [&]<class T>(const char *, T &field) {
        if (now[index] != asked[index] && now[index] != known[index])
            field = std::get<T>(asked[index]);
        ++index;
    });
    return draft;
}

bool isByokPathError(const std::optional<QString> &text)
{
    return text && (*text == QLatin1String("BYOK Vertex AI service account JSON path is not configured.") ||
                    text->startsWith(QLatin1String("BYOK Vertex AI service account JSON not found:")));
}

/// What the observer has said of its archive while the settings were being written: the word is the observer's.
void keepArchiveNews(ObserverSettings &settings, const ObserverSettings &before, const ObserverSettings &now)
{
    if (now.archiveEnabled != before.archiveEnabled)
        settings.archiveEnabled = now.archiveEnabled;
    if (now.archiveVaultId != before.archiveVaultId)
        settings.archiveVaultId = now.archiveVaultId;
}

} // namespace

SettingsEditing::SettingsEditing(Dependencies dependencies) : m_with(std::move(dependencies)) {}

SettingsEditing::~SettingsEditing()
{
    m_life.request_stop();
}

Task<bool> SettingsEditing::saveSettings(ObserverSettings next)
{
    return save(std::move(next), ByokKey::LeftAloneIfUnchanged);
}

Task<bool> SettingsEditing::saveByokSettings(ObserverSettings next)
{
    return save(std::move(next), ByokKey::Decided);
}

Task<bool> SettingsEditing::save(ObserverSettings next, ByokKey key)
{
    const ObserverSettings whenAsked = m_with.state.settings();
    const ObserverSettings draftWhenAsked = m_with.state.draftSettings();
    const auto turn = co_await m_saving.acquire(m_life.get_token());
    if (!turn)
        co_return false;
    const ObserverSettings before = m_with.state.settings();
    const ObserverSettings draftBefore = baseOfEdits(draftWhenAsked, m_with.state.draftSettings(), before);
    keepArchiveNews(next, whenAsked, before);
    ObserverSettings told = leavingSecretsAlone(next, before);
    if (key == ByokKey::Decided)
        told.byokGoogleVertexApiKey = next.byokGoogleVertexApiKey;
    const auto saved = co_await store(std::move(told));
    if (!saved)
        co_return false;
    if (!*saved) {
        noteFailure(saved->error().localizedDescription);
        co_return false;
    }
    keepArchiveNews(next, before, m_with.state.settings());
    takeOver(next, withEdits(next, draftBefore, m_with.state.draftSettings()));
    for (const QString &secret : (*saved)->secretsNotRemoved)
        noteFailure(StatusTexts::secretNotRemoved(secret));
    co_return true;
}

Task<std::expected<SavedSettings, SettingFailure>> SettingsEditing::changeSetting(QString key, QString value)
{
    using Kind = SettingFailure::Kind;
    const auto turn = co_await m_saving.acquire(m_life.get_token());
    if (!turn)
        co_return std::unexpected(SettingFailure{.kind = Kind::NotSaved, .words = {}});
    const ObserverSettings before = m_with.state.settings();
    ObserverSettings next = before;
    if (const auto fits = SettingRules::assign(next, key, value); !fits)
        co_return std::unexpected(SettingFailure{.kind = Kind::Refused, .words = fits.error()});
    // Assigned to the placeholders, so that a secret is told to the store even where it is the one that we know.
    ObserverSettings stored = leavingSecretsAlone(next, next);
    static_cast<void>(SettingRules::assign(stored, key, value));

    const auto saved = co_await store(stored);
    if (!saved)
        co_return std::unexpected(SettingFailure{.kind = Kind::NotSaved, .words = {}});
    if (!*saved) {
        noteFailure(saved->error().localizedDescription);
        co_return std::unexpected(SettingFailure{.kind = Kind::NotSaved, .words = saved->error().localizedDescription});
    }
    ObserverSettings draft = m_with.state.draftSettings();
    static_cast<void>(SettingRules::assign(draft, key, value));
    keepArchiveNews(next, before, m_with.state.settings());
    takeOver(next, draft);
    co_return **saved;
}

Task<> SettingsEditing::finish(std::stop_token stop)
{
    co_await m_saving.acquire(std::move(stop));
}

/// @return nothing when this object is going
Task<std::optional<Result<SavedSettings>>> SettingsEditing::store(ObserverSettings settings)
{
    return m_with.queue.run(m_life.get_token(),
                            [&store = m_with.store, settings = std::move(settings)] { return store.save(settings); });
}

void SettingsEditing::noteFailure(const QString &words)
{
    m_failure = words;
    m_with.state.setHelperError(m_failure);
}

void SettingsEditing::takeOver(const ObserverSettings &next, const ObserverSettings &draft)
{
    const bool movesPort = m_with.state.settings().localPort != next.localPort;
    if (m_failure && m_with.state.helperError() == m_failure)
        m_with.state.setHelperError(std::nullopt);
    m_failure.reset();
    m_with.state.setSettings(next);
    m_with.state.setDraftSettings(draft);
    clearResolvedByokPathErrorIfNeeded(next);
    if (m_closed)
        return;
    if (movesPort)
        m_tasks.spawn([this](std::stop_token stop) { return moveObserver(std::move(stop)); });
    else
        m_tasks.spawn([this, next](std::stop_token stop) { return tellObserver(next, std::move(stop)); });
}

/// Errors of a Vertex configuration that is no longer in use.
void SettingsEditing::clearResolvedByokPathErrorIfNeeded(const ObserverSettings &next)
{
    if (usesGoogleVertex(next))
        return;
    if (isByokPathError(m_with.state.helperError()))
        m_with.state.setHelperError(std::nullopt);
    auto status = m_with.state.status();
    if (!status)
        return;
    for (auto *text : {&status->lastError, &status->analysisBackfillLastError}) {
        if (isByokPathError(*text))
            text->reset();
    }
    m_with.state.setStatus(*status);
}

/// One at a time, or a younger record could be overtaken by an older one. A failure is not reported: an observer that
/// can't be reached reads the file when it starts.
Task<> SettingsEditing::tellObserver(ObserverSettings next, std::stop_token stop)
{
    const auto turn = co_await m_telling.acquire(stop);
    if (!turn)
        co_return;
    const auto api = m_with.observer.api();
    static_cast<void>(co_await api->saveSettings(next, stop));
    if (!stop.stop_requested())
        co_await m_with.observer.refreshStatus(stop);
}

/// A recording under way still needs the observer at its old address, for what it has not sent yet.
Task<> SettingsEditing::moveObserver(std::stop_token stop)
{
    return m_with.betweenRecordings(
        [this] {
            if (m_closed)
                return;
            m_with.observer.useSettingsPort();
            m_with.observer.restartHelper();
        },
        std::move(stop));
}

} // namespace ostrel
