#pragma once

#include "app/Platform.h"
#include "app/doctor/DoctorFacts.h"

#include <chrono>

namespace ostrel {

/// Asks everything that the checks judge, side by side where it may hang: below ten seconds together, however many of
/// the parts hang. Changes nothing, and nothing that it starts stays. Main thread, outside of an event loop.
DoctorFacts gatherFacts(const Platform &platform);

/// Runs `node --version`, and ends it when it takes too long.
/// @param root the observer's folder, where a node of its own may lie
NodeFacts readNodeFacts(const QString &root, std::chrono::milliseconds patience);

} // namespace ostrel
