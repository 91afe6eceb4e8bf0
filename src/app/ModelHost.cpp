#include "app/ModelHost.h"

#include "capture/ScreenCaptureRecorder.h"
#include "model/LocalApiToken.h"
#include "observer/NetworkTransport.h"
#include "observer/RepoLocator.h"
#include "observer/SettingsStore.h"

#include <QCoreApplication>

namespace ostrel {

namespace {

/// Our own desktop-file id: windows that bear it are ours.
const QString bundleIdentifier = QStringLiteral("com.tamsk.ostrel");

} // namespace

ModelHost::ModelHost(const Platform &platform, std::function<void()> terminate)
    : m_context(platform.foreground, platform.contextAccessibility),
      m_transport(std::make_unique<NetworkTransport>(m_clock)),
      m_sampleQueue(QStringLiteral("com.tamsk.ostrel.screen-capture.samples")),
      m_contextQueue(QStringLiteral("com.tamsk.ostrel.context")),
      m_observerQueue(QStringLiteral("com.tamsk.ostrel.observer")), m_worker(QStringLiteral("com.tamsk.ostrel.worker")),
      m_model(makeModel(platform, std::move(terminate)))
{}

ModelHost::~ModelHost() = default;

std::unique_ptr<AppModel> ModelHost::makeModel(const Platform &platform, std::function<void()> terminate)
{
    auto recorder = std::make_unique<ScreenCaptureRecorder>(
        ScreenCaptureRecorder::Dependencies{.clock = m_clock,
                                            .displays = platform.displays,
                                            .context = m_context,
                                            .sampleQueue = m_sampleQueue,
                                            .contextQueue = m_contextQueue,
                                            .processID = qint32(QCoreApplication::applicationPid()),
                                            .bundleIdentifier = bundleIdentifier});
    return std::make_unique<AppModel>(
        AppModel::Dependencies{.clock = m_clock,
                               .settings = SettingsStore(platform.secrets).load(),
                               .localAPIToken = localApiTokenOrFallback(platform.secrets),
                               .repoRoot = RepoLocator::forThisProgram().resolveRepoRoot(),
                               .launcher = platform.processes,
                               .transport = *m_transport,
                               .observerQueue = m_observerQueue,
                               .worker = m_worker,
                               .recorder = std::move(recorder),
                               .screenCapture = platform.screenCaptureAccess,
                               .accessibility = platform.permissionAccessibility,
                               .defaults = platform.userDefaults,
                               .systemSettings = platform.settingsOpener,
                               .terminate = std::move(terminate)});
}

} // namespace ostrel
