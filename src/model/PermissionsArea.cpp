#include "model/PermissionsArea.h"

#include "base/SerialQueue.h"
#include "base/UserDefaults.h"
#include "capture/ScreenCaptureAccess.h"
#include "context/AccessibilityAccess.h"
#include "model/FileAccessPermission.h"
#include "model/ModelState.h"
#include "model/SystemSettingsOpener.h"

namespace ostrel {

namespace {

const QString dismissedKey = QStringLiteral("dismissedRecommendedPermissions");

} // namespace

PermissionsArea::PermissionsArea(Dependencies dependencies) : m_with(dependencies)
{
    loadDismissedRecommendedPermissionKinds();
    m_permissions =
        m_with.worker.sync([this] { return takeSnapshot(m_with, m_with.state.settings().outputDirectory); });
}

QList<PermissionPromptItem> PermissionsArea::permissionPromptItems() const
{
    return ostrel::permissionPromptItems(m_permissions);
}

bool PermissionsArea::canContinuePastPermissions() const
{
    return m_permissions.requiredAreGranted() && shouldShowPermissionsGate();
}

void PermissionsArea::continueWithoutRecommendedPermissions()
{
    const auto dismissed = m_dismissed + m_permissions.missingRecommendedPermissionKinds();
    if (dismissed != m_dismissed) {
        m_dismissed = dismissed;
        Q_EMIT dismissedRecommendedPermissionKindsChanged();
    }
    saveDismissedRecommendedPermissionKinds();
}

void PermissionsArea::loadDismissedRecommendedPermissionKinds()
{
    for (const QString &text : m_with.defaults.stringList(dismissedKey).value_or(QStringList())) {
        if (const auto kind = permissionKindFromRawValue(text))
            m_dismissed.insert(*kind);
    }
}

void PermissionsArea::saveDismissedRecommendedPermissionKinds() const
{
    QStringList rawValues;
    for (const AppPermissionKind kind : m_dismissed)
        rawValues.append(rawValue(kind));
    rawValues.sort();
    m_with.defaults.setStringList(dismissedKey, rawValues);
}

PermissionsSnapshot PermissionsArea::takeSnapshot(const Dependencies &with, const QString &outputDirectory)
{
    return {.screenCaptureAuthorized = with.screenCapture.preflight(),
            .fileAccessAuthorized = FileAccessPermission::canWrite(outputDirectory),
            .accessibilityAuthorized = with.accessibility.isTrusted()};
}

void PermissionsArea::publish(const PermissionsSnapshot &snapshot)
{
    if (snapshot == m_permissions)
        return;
    m_permissions = snapshot;
    Q_EMIT permissionsChanged();
}

Task<std::optional<PermissionsSnapshot>> PermissionsArea::refreshPermissions(std::stop_token stop)
{
    // The job may outlive this object, what it uses does not go before the worker: hence no `this`.
    const auto snapshot = co_await m_with.worker.run(
        stop, [with = m_with, folder = m_with.state.settings().outputDirectory] { return takeSnapshot(with, folder); });
    if (!snapshot)
        co_return std::nullopt;
    publish(*snapshot);
    co_return *snapshot;
}

Task<> PermissionsArea::requestPermission(AppPermissionKind kind, std::stop_token stop)
{
    switch (kind) {
    case AppPermissionKind::screenRecording:
        co_await requestScreenRecording(std::move(stop));
        break;
    case AppPermissionKind::fileAccess:
        co_await requestFileAccess(std::move(stop));
        break;
    case AppPermissionKind::recordingContext:
        co_await requestAccessibilityPermission(std::move(stop));
        break;
    }
}

Task<> PermissionsArea::requestScreenRecording(std::stop_token stop)
{
    if (m_screenCaptureRequestedThisSession) {
        m_with.systemSettings.openScreenRecording();
    } else {
        m_screenCaptureRequestedThisSession = true;
        if (!co_await m_with.requestQueue.run(stop, [&access = m_with.screenCapture] { return access.request(); }))
            co_return;
    }
    co_await refreshPermissions(std::move(stop));
}

Task<> PermissionsArea::requestFileAccess(std::stop_token stop)
{
    const auto snapshot = co_await refreshPermissions(std::move(stop));
    if (snapshot && !snapshot->fileAccessAuthorized)
        m_with.systemSettings.openFilesAndFolders();
}

Task<> PermissionsArea::requestAccessibilityPermission(std::stop_token stop)
{
    if (m_permissions.accessibilityAuthorized) {
        m_with.systemSettings.openAccessibility();
        co_return;
    }
    const auto trusted =
        co_await m_with.worker.run(stop, [&access = m_with.accessibility] { return access.request(); });
    if (!trusted)
        co_return;
    if (!*trusted)
        m_with.systemSettings.openAccessibility();
    co_await refreshPermissions(std::move(stop));
}

} // namespace ostrel
