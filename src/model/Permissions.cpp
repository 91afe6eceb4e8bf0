#include "model/Permissions.h"

namespace ostrel {

QString rawValue(AppPermissionKind kind)
{
    switch (kind) {
    case AppPermissionKind::screenRecording:
        return QStringLiteral("screenRecording");
    case AppPermissionKind::fileAccess:
        return QStringLiteral("fileAccess");
    case AppPermissionKind::recordingContext:
        return QStringLiteral("recordingContext");
    }
    return {};
}

QString rawValue(AppPermissionRequirement requirement)
{
    return requirement == AppPermissionRequirement::required ? QStringLiteral("required")
                                                             : QStringLiteral("recommended");
}

std::optional<AppPermissionKind> permissionKindFromRawValue(const QString &text)
{
    using enum AppPermissionKind;
    for (const AppPermissionKind kind : {screenRecording, fileAccess, recordingContext}) {
        if (rawValue(kind) == text)
            return kind;
    }
    return std::nullopt;
}

QSet<AppPermissionKind> PermissionsSnapshot::missingRecommendedPermissionKinds() const
{
    QSet<AppPermissionKind> missing;
    for (const PermissionPromptItem &item : permissionPromptItems(*this)) {
        if (item.requirement == AppPermissionRequirement::recommended && !item.granted)
            missing.insert(item.kind);
    }
    return missing;
}

bool PermissionsSnapshot::shouldShowPermissionsGate(const QSet<AppPermissionKind> &dismissedRecommended) const
{
    return !requiredAreGranted() || !(missingRecommendedPermissionKinds() - dismissedRecommended).isEmpty();
}

QList<PermissionPromptItem> permissionPromptItems(const PermissionsSnapshot &snapshot)
{
    return {
        {.kind = AppPermissionKind::screenRecording,
         .title = QStringLiteral("Screen Recording"),
         .detail = QStringLiteral("Needed to analyze your screen"),
         .requirement = AppPermissionRequirement::required,
         .granted = snapshot.screenCaptureAuthorized},
        {.kind = AppPermissionKind::fileAccess,
         .title = QStringLiteral("File Access"),
         .detail = QStringLiteral("Saves your journal locally"),
         .requirement = AppPermissionRequirement::required,
         .granted = snapshot.fileAccessAuthorized},
        {.kind = AppPermissionKind::recordingContext,
         .title = QStringLiteral("Accessibility"),
         .detail = QStringLiteral("Adds website and window names"),
         .requirement = AppPermissionRequirement::recommended,
         .granted = snapshot.accessibilityAuthorized},
    };
}

} // namespace ostrel
