#pragma once

#include <QRect>

#include <memory>
#include <optional>
#include <vector>

namespace ostrel {

class X11Connection;

/// Tells which parts of the X screen have changed. Each tracker has a memory of its own. One thread at a time.
class X11ChangeTracker
{
public:
    virtual ~X11ChangeTracker() = default;

    /// What has changed since the last call; the first one is about all of the screen. Whatever the server draws after
    /// that belongs to the next call, so a picture that is fetched afterwards never lacks a change that was told. And
    /// all that was drawn before an answer that has been collected is told by now.
    /// @return rectangles on the X screen, in any order. Absent when the server didn't say: anything may have changed
    virtual std::optional<std::vector<QRect>> takeChanges() = 0;
};

/// Tracks by the server's DAMAGE extension. A few round trips; then one for each question, and none while nothing has
/// been drawn.
/// @return null when the server lacks it or XFIXES
std::unique_ptr<X11ChangeTracker> makeDamageTracker(std::shared_ptr<X11Connection> connection);

} // namespace ostrel
