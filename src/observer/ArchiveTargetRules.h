#pragma once

#include "observer/ArchiveTarget.h"

#include <QString>
#include <optional>

namespace ostrel::ArchiveTargetRules {

/// The place as it is meant: without blanks around what was typed.
/// @param kept the place as the observer told it, where it did. A bucket's secret that was left empty stays the one
///             that is kept for the same endpoint and access key.
ArchiveTarget tidied(ArchiveTarget target, const std::optional<ArchiveTarget> &kept);

/// Whether an empty secret means one that the observer keeps already.
bool keepsSecret(const ArchiveTarget &target, const std::optional<ArchiveTarget> &kept);

/// What keeps a place from being one, in words for whoever has typed it; the first thing only. Whether it can be
/// reached the observer finds out.
std::optional<QString> complaintAbout(const ArchiveTarget &target);

} // namespace ostrel::ArchiveTargetRules
