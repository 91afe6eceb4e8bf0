#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <chrono>
#include <functional>

namespace ostrel {

/// Where the portal is, where the grant is kept, how long everybody is waited for, and by which clock.
struct PortalSeams {
    QByteArray busAddress = {}; ///< empty means the session's own, as it is at the time of asking
    QString grantFile = {};     ///< empty means the one in the state folder
    /// How long the portal, or the stream of pictures, may be silent where no user is waited for.
    std::chrono::milliseconds patience{10'000};
    /// How long the user may think about the desktop's question.
    std::chrono::milliseconds userPatience{120'000};
    /// For how long it is waited for word why a session, or its pictures, have ended. What belongs together is told
    /// within a tenth of a second, on a machine that isn't busy.
    std::chrono::milliseconds reasonPatience{2'000};
    /// A question that nobody has answered is not put again by the program itself for so long.
    std::chrono::milliseconds questionPause{30'000};
    /// A still screen may not give a first picture; after this time that is said, and one is asked for.
    std::chrono::milliseconds firstPictureAfter{1'000};
    /// How often it is looked whether places of a still picture are black that need not be any more.
    std::chrono::milliseconds lookAtBlackEvery{1'000};
    /// For how long no picture is shown rather than one whose private windows nobody tells: whoever tells them may just
    /// be starting, once more too.
    std::chrono::milliseconds placesPatience{5'000};
    /// The monitors that the compositor shows something on, by what they are and in order; empty where it doesn't tell.
    /// Called on any thread, and again and again, so it must cost next to nothing while nothing has happened.
    std::function<QStringList()> compositorsMonitors = [] { return QStringList(); };
    /// Whether the compositor, which PipeWire can't speak for, still answers. Called on the thread that captures; waits
    /// for nothing.
    std::function<bool()> isCompositorAnswering = [] { return true; };
    /// Time that only ever goes on, from any beginning. Called on any thread.
    std::function<std::chrono::milliseconds()> monotonicTime = [] {
        const auto sinceBoot = std::chrono::steady_clock::now().time_since_epoch();
        return std::chrono::duration_cast<std::chrono::milliseconds>(sinceBoot);
    };
};

} // namespace ostrel
