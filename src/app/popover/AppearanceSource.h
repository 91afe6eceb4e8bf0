#pragma once

#include <functional>
#include <optional>

namespace ostrel {

/// What the user has asked the desktop for; absent where it was not asked for, or nobody can tell.
struct AppearanceWishes {
    std::optional<bool> dark;
    std::optional<double> textScale; ///< 1 is the size that was designed for
    std::optional<bool> reducedMotion;

    bool operator==(const AppearanceWishes &) const = default;
};

/// Whoever knows how the desktop wants programs to look. Main thread.
class AppearanceSource
{
public:
    virtual ~AppearanceSource() = default;

    /// Tells the wishes once they are known, from the event loop, and from then on whenever they change.
    /// @param tell an empty one ends it
    virtual void follow(std::function<void(const AppearanceWishes &)> tell) = 0;
};

} // namespace ostrel
