#pragma once

#include "base/Error.h"

#include <QString>

#include <optional>

namespace ostrel {

/// How far the search for a newer version, or its installation, has come.
struct UpdateState {
    enum class Phase {
        Idle, ///< nothing was looked for yet
        Checking,
        UpToDate,
        Found, ///< there is a newer version, and it is left at that
        Downloading,
        Unpacking, ///< and verifying before that
        Ready,     ///< the next start is the new version's, once the program has quit
        Failed,    ///< `error` says why
    };

    Phase phase = Phase::Idle;
    QString version;            ///< the newer one, where it is known
    QString notes;              ///< what is new in it; may be empty
    qint64 receivedBytes = 0;   ///< while Downloading
    qint64 totalBytes = 0;      ///< of the download
    bool installsItself = true; ///< otherwise somebody else, such as the package manager, installs new versions
    std::optional<Error> error;
};

/// One or two sentences for the user.
QString updateWords(const UpdateState &state);

} // namespace ostrel
