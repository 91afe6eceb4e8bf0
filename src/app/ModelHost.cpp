#include "app/ModelHost.h"

#include "app/RunningApplication.h"
#include "app/SettingChanges.h"
#include "capture/ScreenCaptureRecorder.h"
#include "model/LocalApiToken.h"
#include "observer/NetworkTransport.h"
#include "observer/RepoLocator.h"

#include <QCoreApplication>

namespace ostrel {

namespace {

/// Our own desktop-file id: windows that bear it are ours.
const QString bundleIdentifier = QStringLiteral("com.tamsk.ostrel");

qint32 ownProcess()
{
    return qint32(QCoreApplication::applicationPid());
}

} // namespace

ModelHost::ModelHost(const Platform &platform, std::function<void()> terminate, std::function<void()> activate,
                     std::function<void(qint64)> endWithoutWaiting)
    : m_platform(platform), m_terminate(std::move(terminate)), m_activate(std::move(activate)),
      m_endWithoutWaiting(std::move(endWithoutWaiting)), m_context({.foreground = platform.foreground,
                                                                    .accessibility = platform.contextAccessibility,
                                                                    .tree = platform.accessibilityTree,
                                                                    .browserScripts = platform.browserScripts,
                                                                    .excludesWindow = platform.excludesWindow,
                                                                    .ownProcess = ownProcess()}),
      m_transport(std::make_unique<NetworkTransport>(m_clock)),
      m_sampleQueue(QStringLiteral("com.tamsk.ostrel.screen-capture.samples")),
      m_contextQueue(QStringLiteral("com.tamsk.ostrel.context")),
      m_observerQueue(QStringLiteral("com.tamsk.ostrel.observer")), m_worker(QStringLiteral("com.tamsk.ostrel.worker")),
      m_requestQueue(QStringLiteral("com.tamsk.ostrel.requests")), m_settingsStore(platform.secrets),
      m_settingsQueue(QStringLiteral("com.tamsk.ostrel.settings")),
      m_waitingSecrets(m_clock, m_platform.secrets, m_settingsQueue)
{}

ModelHost::~ModelHost()
{
    m_platform.remoteControl.close();
}

Task<> ModelHost::start(std::stop_token stop)
{
    auto stored = co_await m_settingsQueue.run(
        stop, [&secrets = m_platform.secrets, &settings = m_settingsStore] { return readStored(secrets, settings); });
    if (!stored)
        co_return;
    m_model = makeModel(*std::move(stored));
    m_waitingSecrets.start();
    m_platform.remoteControl.open(
        {.changeSetting = [this](SettingChange change) { return changeInModel(m_model.get(), std::move(change)); },
         .complaint = [this] { return m_model->helperError().value_or(QString()); },
         .activate = m_activate});
}

ModelHost::Stored ModelHost::readStored(SecretStore &secrets, SettingsStore &settings)
{
    return {.settings = settings.loadToKeep(),
            .localAPIToken = localApiTokenOrFallback(secrets),
            .repoRoot = RepoLocator::forThisProgram().resolveRepoRoot()};
}

std::unique_ptr<AppModel> ModelHost::makeModel(Stored stored)
{
    auto recorder = std::make_unique<ScreenCaptureRecorder>(
        ScreenCaptureRecorder::Dependencies{.clock = m_clock,
                                            .displays = m_platform.displays,
                                            .context = m_context,
                                            .sampleQueue = m_sampleQueue,
                                            .contextQueue = m_contextQueue,
                                            .processID = ownProcess(),
                                            .bundleIdentifier = bundleIdentifier,
                                            .endWithoutWaiting = m_endWithoutWaiting});
    return std::make_unique<AppModel>(AppModel::Dependencies{.clock = m_clock,
                                                             .settings = std::move(stored.settings),
                                                             .localAPIToken = std::move(stored.localAPIToken),
                                                             .repoRoot = std::move(stored.repoRoot),
                                                             .launcher = m_platform.processes,
                                                             .transport = *m_transport,
                                                             .observerQueue = m_observerQueue,
                                                             .worker = m_worker,
                                                             .requestQueue = m_requestQueue,
                                                             .recorder = std::move(recorder),
                                                             .screenCapture = m_platform.screenCaptureAccess,
                                                             .accessibility = m_platform.permissionAccessibility,
                                                             .defaults = m_platform.userDefaults,
                                                             .systemSettings = m_platform.settingsOpener,
                                                             .dialogs = m_platform.dialogs,
                                                             .workspace = m_platform.workspace,
                                                             .settingsStore = m_settingsStore,
                                                             .settingsQueue = m_settingsQueue,
                                                             .terminate = m_terminate});
}

} // namespace ostrel
