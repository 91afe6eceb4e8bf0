#pragma once

#include "base/Error.h"

namespace ostrel {

/// Whether the desktop starts the program when the user logs in. Main thread; blocks on the disk for a moment.
class Autostart
{
public:
    virtual ~Autostart() = default;

    /// As it stands now: others may change it, too.
    virtual bool isOn() const = 0;
    /// Holds from the next login on.
    /// @return what the disk says where it can't be noted
    virtual Result<> turn(bool on) = 0;
};

} // namespace ostrel
