#pragma once

#include <QString>

namespace ostrel {

/// What is to be done after something happened to a recording's capture.
struct CaptureRecoveryAction {
    enum class Kind {
        none,
        stopForSleep, ///< the system goes to sleep
        resume,       ///< begin the attempts to start capture again
        giveUp,       ///< recovery has failed: end the recording
    };

    Kind kind = Kind::none;
    QString message = {}; ///< why it was given up; otherwise empty

    bool operator==(const CaptureRecoveryAction &) const = default;
};

} // namespace ostrel
