#pragma once

#include <QProcessEnvironment>
#include <QString>

namespace ostrel {

/// What the programs of a session of the test's own run with: nothing of the user's but the search path. Their home,
/// configuration, data, cache and runtime folders ("home", "config", "data", "cache", "run") are made in the given
/// folder. No message bus is named, so that libraries neither find the machine's nor start one of their own. Ends the
/// test when the folders can't be made.
QProcessEnvironment privateEnvironment(const QString &folder);

} // namespace ostrel
