#pragma once

#include "base/Task.h"
#include "model/Permissions.h"

#include <QObject>
#include <optional>
#include <stop_token>

namespace ostrel {

class AccessibilityAccess;
class ModelState;
class ScreenCaptureAccess;
class SerialQueue;
class SystemSettingsOpener;
class UserDefaults;

/// What the desktop lets us do, how the user is asked for it, and what the user has chosen to do without. Main
/// thread; every check runs on the worker, because it may block on a disk or a daemon, and every request on a queue of
/// its own, because it may block on the user.
class PermissionsArea : public QObject
{
    Q_OBJECT

public:
    struct Dependencies {
        const ModelState &state; ///< tells the output folder
        /// The threads that the two access objects are used on. A check or a request that was begun runs to its end
        /// there even when nobody waits any more, so destroy the queues before what they use.
        SerialQueue &worker;
        SerialQueue &requestQueue;
        ScreenCaptureAccess &screenCapture;
        AccessibilityAccess &accessibility;
        UserDefaults &defaults;
        SystemSettingsOpener &systemSettings;
    };

    /// Loads the dismissed kinds and takes the first snapshot, waiting for the worker: it is built before the event
    /// loop runs. What the dependencies name outlives this object.
    explicit PermissionsArea(Dependencies dependencies);

    const PermissionsSnapshot &permissions() const { return m_permissions; }
    const QSet<AppPermissionKind> &dismissedRecommendedPermissionKinds() const { return m_dismissed; }

    QList<PermissionPromptItem> permissionPromptItems() const;
    bool shouldShowPermissionsGate() const { return m_permissions.shouldShowPermissionsGate(m_dismissed); }
    /// Whether the only thing between the user and the recorder is a recommended grant not dismissed yet.
    bool canContinuePastPermissions() const;
    /// Dismisses every recommended grant that is missing now, for this and later launches.
    void continueWithoutRecommendedPermissions();

    /// Takes a new snapshot and publishes it when it differs.
    /// @return the snapshot, or nothing when stopped
    Task<std::optional<PermissionsSnapshot>> refreshPermissions(std::stop_token stop);

    /// What the button of a row does: asks for the grant, or opens the settings page where asking has no effect any
    /// more, and refreshes the snapshot. A request may wait for the user's answer to the desktop's own prompt.
    Task<> requestPermission(AppPermissionKind kind, std::stop_token stop);
    Task<> requestAccessibilityPermission(std::stop_token stop);

Q_SIGNALS:
    void permissionsChanged();
    void dismissedRecommendedPermissionKindsChanged();

private:
    /// Worker thread.
    static PermissionsSnapshot takeSnapshot(const Dependencies &with, const QString &outputDirectory);
    void publish(const PermissionsSnapshot &snapshot);
    void loadDismissedRecommendedPermissionKinds();
    void saveDismissedRecommendedPermissionKinds() const;
    Task<> requestScreenRecording(std::stop_token stop);
    Task<> requestFileAccess(std::stop_token stop);

    const Dependencies m_with;
    PermissionsSnapshot m_permissions;
    QSet<AppPermissionKind> m_dismissed;
    /// The desktop shows its prompt once a launch; a second request opens the settings page instead.
    bool m_screenCaptureRequestedThisSession = false;
};

} // namespace ostrel
