#pragma once

#include "app/doctor/DesktopFacts.h"

#include <QProcessEnvironment>

namespace ostrel {

/// The questions that fit the running session. Asks none of them.
DesktopProbes makeDesktopProbes(const QProcessEnvironment &environment);

} // namespace ostrel
