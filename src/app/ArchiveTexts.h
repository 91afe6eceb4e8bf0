#pragma once

#include "observer/ArchiveTarget.h"
#include "observer/WireRecords.h"

#include <QJsonObject>
#include <QString>
#include <optional>

namespace ostrel {

/// The archive for people: a line for each thing.
/// @param exporting the observer's last word on an export; none where it gave none
QString archiveStatusText(const ArchiveStatus &status, const std::optional<ArchiveExportStatus> &exporting);

/// The fields of the status by their names, without the recovery key, and "export": the fields of that record, or null.
QJsonObject archiveStatusJson(const ArchiveStatus &status, const std::optional<ArchiveExportStatus> &exporting);

/// All fields by their names, absent ones null.
QJsonObject exportStatusJson(const ArchiveExportStatus &status);

/// Where the archive lies, a line for each thing that is told of the place.
QString archiveTargetText(const ArchiveTarget &target);

/// All fields by their names, null those that don't belong to the kind; a secret is told as "<redacted>".
QJsonObject archiveTargetJson(const ArchiveTarget &target);

/// "3 of 10 clips", with the day where it is known.
QString exportProgressText(const ArchiveExportStatus &status);

/// What has come of an export that is over, in a sentence.
QString exportOutcomeText(const ArchiveExportStatus &status);

} // namespace ostrel
