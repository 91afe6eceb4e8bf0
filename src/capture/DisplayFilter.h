#pragma once

#include <QList>
#include <QString>
#include <optional>

namespace ostrel {

struct ScreenCaptureApplicationIdentity {
    qint32 processID = 0;
    std::optional<QString> bundleIdentifier;

    bool operator==(const ScreenCaptureApplicationIdentity &) const = default;
};

/// Whose windows a capture shows: everybody's, or everybody's but those of the listed processes.
struct DisplayFilterMode {
    /// Sorted ascending; empty means that all applications are included.
    QList<qint32> excludedProcessIDs;

    bool includesAllApplications() const { return excludedProcessIDs.isEmpty(); }
    /// "includingApplications" or "excludingApplications(count=N)"
    QString diagnosticDescription() const;

    bool operator==(const DisplayFilterMode &) const = default;
};

/// Decides whose windows are left out: our own.
namespace ScreenCaptureFilterStrategy {
DisplayFilterMode displayFilterMode(const QList<ScreenCaptureApplicationIdentity> &applications,
                                    qint32 currentProcessID, const std::optional<QString> &currentBundleIdentifier);
}

} // namespace ostrel
