#include "update/UpdaterCoordinator.h"

#include <QCoreApplication>
#include <QPointer>

namespace ostrel {

UpdaterCoordinator::UpdaterCoordinator(BundleInfo bundle, MakeController make)
    : m_bundle(std::move(bundle)), m_make(std::move(make))
{}

UpdaterCoordinator::~UpdaterCoordinator() = default;

void UpdaterCoordinator::start()
{
    if (!m_bundle.feedUrl)
        return;
    m_controller = m_make(*this);
    m_controller->startUpdater();
}

std::function<void()> UpdaterCoordinator::checkForUpdates() const
{
    if (!m_controller)
        return {};
    return [controller = QPointer(m_controller.get())] {
        if (controller)
            controller->checkForUpdates();
    };
}

bool UpdaterCoordinator::willInstallUpdateOnQuit(const Version & /*version*/, ImmediateInstallationBlock install)
{
    // Not within the framework's call: what follows ends the program. The application object, because the installation
    // has to go on where this object does not.
    QMetaObject::invokeMethod(
        QCoreApplication::instance(),
        [self = QPointer(this), install = std::move(install)] {
            if (self && self->prepareForUpdateRelaunch)
                self->prepareAndInstall(install);
            else
                install();
        },
        Qt::QueuedConnection);
    return true;
}

void UpdaterCoordinator::prepareAndInstall(ImmediateInstallationBlock install)
{
    // The scope keeps the closure. NOLINTNEXTLINE(cppcoreguidelines-avoid-capturing-lambda-coroutines)
    m_tasks.spawn([prepare = prepareForUpdateRelaunch, install = std::move(install)](std::stop_token stop) -> Task<> {
        co_await prepare(stop);
        // Also after a stop: the preparation has ended by then, and this object is no reason to stay with the old
        // version.
        install();
    });
}

} // namespace ostrel
