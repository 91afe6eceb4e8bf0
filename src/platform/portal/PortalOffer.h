#pragma once

#include "platform/portal/PortalSeams.h"

#include <optional>

namespace ostrel {

/// What the session's portal offers to recordings.
struct PortalOffer {
    std::optional<quint32> version; ///< of its screen casts; absent while the portal does not run
    bool isGranted = false;         ///< the user's consent is kept from an earlier time
};

/// Looks without starting anything or asking the user. Any thread; a bus that hangs keeps it for `patience`.
/// @return nothing where there is no portal, or one without screen casts
std::optional<PortalOffer> readPortalOffer(const PortalSeams &seams = {});

} // namespace ostrel
