#include "capture/DisplayFilter.h"

#include <algorithm>

namespace ostrel {

QString DisplayFilterMode::diagnosticDescription() const
{
    if (includesAllApplications())
        return QStringLiteral("includingApplications");
    return QStringLiteral("excludingApplications(count=%1)").arg(excludedProcessIDs.size());
}

DisplayFilterMode
ScreenCaptureFilterStrategy::displayFilterMode(const QList<ScreenCaptureApplicationIdentity> &applications,
                                               qint32 currentProcessID,
                                               const std::optional<QString> &currentBundleIdentifier)
{
    const bool knowsBundle = currentBundleIdentifier && !currentBundleIdentifier->isEmpty();
    DisplayFilterMode mode;
    for (const ScreenCaptureApplicationIdentity &application : applications) {
        const bool isOwnBundle = knowsBundle && application.bundleIdentifier == currentBundleIdentifier;
        if (application.processID == currentProcessID || isOwnBundle)
            mode.excludedProcessIDs.append(application.processID);
    }
    std::sort(mode.excludedProcessIDs.begin(), mode.excludedProcessIDs.end());
    return mode;
}

} // namespace ostrel
