#pragma once

#include "ObserverFixture.h"
#include "model/SettingsEditing.h"
#include "observer/LocalObserverAPI.h"
#include "support/FakeSecretStore.h"

#include <memory>

namespace ostrel {

inline const QString putSettings = QStringLiteral("PUT /api/settings");

/// Only the settings' part of the model, over the real store and a home of its own.
class SettingsFixture : public ObserverFixture
{
protected:
    SettingsFixture()
    {
        m_observer.hooks = {.applyObserverStatus = [this](const ObserverStatus &) { note("status"); },
                            .stopCapture = [this] { note("stop capture"); },
                            .startPolling = [this] { note("start polling"); }};
    }

    static FakeHttpTransport::Answer accepted()
    {
        return FakeHttpTransport::answer(ObserverSettings::defaults().toJson());
    }

    void save(const ObserverSettings &next)
    {
        // The scope keeps the closure. NOLINTNEXTLINE(cppcoreguidelines-avoid-capturing-lambda-coroutines)
        m_tasks.spawn([this, next](std::stop_token) -> Task<> {
            const bool saved = co_await m_editing->saveSettings(next);
            note(saved ? "saved" : "not saved");
        });
    }
    void saveByok(const ObserverSettings &next)
    {
        // The scope keeps the closure. NOLINTNEXTLINE(cppcoreguidelines-avoid-capturing-lambda-coroutines)
        m_tasks.spawn([this, next](std::stop_token) -> Task<> {
            const bool saved = co_await m_editing->saveByokSettings(next);
            note(saved ? "saved" : "not saved");
        });
    }
    void change(const char *key, const char *value)
    {
        // The scope keeps the closure. NOLINTNEXTLINE(cppcoreguidelines-avoid-capturing-lambda-coroutines)
        m_tasks.spawn(
            [this, key = QString::fromUtf8(key), value = QString::fromUtf8(value)](std::stop_token) -> Task<> {
                const auto changed = co_await m_editing->changeSetting(key, value);
                if (changed)
                    note("changed");
                else
                    m_steps.append(QStringLiteral("refused: ") + changed.error().words);
            });
    }
    void settle() override { settleEvents({&m_queue, &m_observerQueue}); }
    void note(const char *step) { m_steps.append(QLatin1String(step)); }
    void breakTheFile() { ASSERT_TRUE(QDir().mkpath(SettingsStore::primaryFile())); }

    ObserverSettings with(qint64 port) const
    {
        ObserverSettings next = m_state.settings();
        next.localPort = port;
        return next;
    }
    ObserverSettings withModel(const char *model) const
    {
        ObserverSettings next = m_state.settings();
        next.model = QLatin1String(model);
        return next;
    }
    static ObserverSettings onDisk()
    {
        return ObserverSettings::fromJson(readFile(SettingsStore::primaryFile()).value_or("no file")).value();
    }
    QStringList sentModels() const
    {
        QStringList models;
        for (const auto &request : m_transport.requests()) {
            if (request.body)
                models.append(ObserverSettings::fromJson(*request.body).value().model);
        }
        return models;
    }

    FakeSecretStore m_secrets;
    SettingsStore m_store{m_secrets};
    SerialQueue m_queue{QStringLiteral("test.settings")};
    QStringList m_steps;
    std::unique_ptr<SettingsEditing> m_editing = std::make_unique<SettingsEditing>(SettingsEditing::Dependencies{
        .state = m_state,
        .observer = m_observer,
        .store = m_store,
        .queue = m_queue,
        .betweenRecordings = [this](std::function<void()> act, std::stop_token) -> Task<> {
            note("end recording");
            act();
            co_return;
        }});
    TaskScope m_tasks;
};

} // namespace ostrel
