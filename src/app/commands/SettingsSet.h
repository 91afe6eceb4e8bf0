#pragma once

#include "app/CommandResult.h"
#include "app/Platform.h"

#include <QString>
#include <QStringList>

namespace ostrel {

/// `ostrel settings set KEY VALUE`: checks the value by its rule, then saves it, through the recorder where one runs.
/// Nothing is changed unless the exit status is 0.
/// @param words what follows "set"
CommandResult setSetting(const QStringList &words, const Platform &platform);

} // namespace ostrel
