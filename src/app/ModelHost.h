#pragma once

#include "app/Platform.h"
#include "app/WaitingSecrets.h"
#include "base/Clock.h"
#include "base/SerialQueue.h"
#include "base/Task.h"
#include "context/ActiveApplicationContext.h"
#include "model/AppModel.h"
#include "observer/HttpTransport.h"
#include "observer/SettingsStore.h"

#include <functional>
#include <memory>
#include <optional>
#include <stop_token>

namespace ostrel {

/// Builds the model over the platform, with the threads, the clock and the transport that it runs on. Main thread,
/// which it never blocks: a keyring may take its time.
class ModelHost
{
public:
    /// Only makes the threads.
    /// @param terminate called once the model has quit
    /// @param activate  shows the panel when another program asks for it; empty where there is none
    /// @param endWithoutWaiting see ScreenCaptureRecorder::Dependencies
    ModelHost(const Platform &platform, std::function<void()> terminate, std::function<void()> activate = {},
              std::function<void(qint64 lostFrames)> endWithoutWaiting = {});
    ModelHost(const ModelHost &) = delete;
    ModelHost &operator=(const ModelHost &) = delete;
    /// Waits for settings that are being saved.
    ~ModelHost();

    /// Reads settings and secrets on their queue, then builds the model, which starts the observer, and lets other
    /// programs reach it. Called once. When stopped, no model is built.
    Task<> start(std::stop_token stop);

    /// Whether there is a model.
    bool isStarted() const { return m_model != nullptr; }
    /// Not before it is started.
    AppModel &model() { return *m_model; }
    Clock &clock() { return m_clock; }

private:
    /// What lies on the disk and in the keyring.
    struct Stored {
        ObserverSettings settings;
        QString localAPIToken;
        std::optional<QString> repoRoot;
    };

    static Stored readStored(SecretStore &secrets, SettingsStore &settings);
    std::unique_ptr<AppModel> makeModel(Stored stored);

    const Platform m_platform;
    const std::function<void()> m_terminate;
    const std::function<void()> m_activate;
    const std::function<void(qint64)> m_endWithoutWaiting;
    SystemClock m_clock;
    ActiveApplicationContext m_context;
    std::unique_ptr<HttpTransport> m_transport;
    SerialQueue m_sampleQueue;
    SerialQueue m_contextQueue;
    SerialQueue m_observerQueue;
    SerialQueue m_worker;
    SerialQueue m_requestQueue;
    SettingsStore m_settingsStore;
    /// Everything that reads or writes settings and secrets runs here, so that writes happen in the order of asking.
    SerialQueue m_settingsQueue;
    std::unique_ptr<AppModel> m_model;
    WaitingSecrets m_waitingSecrets;
};

} // namespace ostrel
