#pragma once

#include <QList>
#include <QSet>
#include <QString>
#include <optional>

namespace ostrel {

/// In the order of the rows.
enum class AppPermissionKind { screenRecording, fileAccess, recordingContext };

enum class AppPermissionRequirement { required, recommended };

/// The names under which both are stored and printed: those of the enumerators.
QString rawValue(AppPermissionKind kind);
QString rawValue(AppPermissionRequirement requirement);
std::optional<AppPermissionKind> permissionKindFromRawValue(const QString &rawValue);

/// What is granted at one moment.
struct PermissionsSnapshot {
    bool screenCaptureAuthorized = false;
    bool fileAccessAuthorized = false;
    bool accessibilityAuthorized = false;

    bool operator==(const PermissionsSnapshot &) const = default;

    bool requiredAreGranted() const { return screenCaptureAuthorized && fileAccessAuthorized; }
    QSet<AppPermissionKind> missingRecommendedPermissionKinds() const;
    /// Whether recording must wait for the user: a required grant is missing, or a recommended one that the user has
    /// not chosen to do without.
    bool shouldShowPermissionsGate(const QSet<AppPermissionKind> &dismissedRecommended) const;
};

/// One row of the permissions screen.
struct PermissionPromptItem {
    AppPermissionKind kind = AppPermissionKind::screenRecording;
    QString title;
    QString detail;
    AppPermissionRequirement requirement = AppPermissionRequirement::required;
    bool granted = false;

    bool operator==(const PermissionPromptItem &) const = default;
};

/// The three rows, in the order of their kinds.
QList<PermissionPromptItem> permissionPromptItems(const PermissionsSnapshot &snapshot);

} // namespace ostrel
