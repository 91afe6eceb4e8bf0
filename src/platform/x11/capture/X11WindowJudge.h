#pragma once

#include "context/PrivacyRules.h"
#include "platform/x11/capture/X11Privacy.h"

#include <QList>

#include <cstdint>
#include <memory>
#include <vector>
#include <xcb/xproto.h>

namespace ostrel {

class X11Connection;

/// Decides whether what a child of the root window holds is private: by the process, the class and the titles of the
/// window that a program has made, which a window manager may have put into frames. One thread at a time.
class X11WindowJudge
{
public:
    X11WindowJudge(std::shared_ptr<X11Connection> connection, X11Privacy privacy);

    /// @return whether there are other rules than before
    bool takeRules();
    /// @return whether that is more than before
    bool leaveOut(const QList<qint32> &processes);

    struct Verdict {
        bool isPrivate = false;
        std::vector<xcb_window_t> asked; ///< the window itself, and those in it that decide
    };
    /// Has the server tell of the names and the children of all that it asks, before it asks. A few round trips for
    /// each of them; at most `mostWindows`.
    Verdict judge(xcb_window_t window);

    /// Whether a property decides.
    bool isRelevant(xcb_atom_t property) const;

private:
    static constexpr int mostWindows = 64;
    static constexpr int deepestFrame = 4;

    bool isPrivate(xcb_window_t window, int hops = 0);
    bool isClient(xcb_window_t window);

    const std::shared_ptr<X11Connection> m_connection;
    const X11Privacy m_privacy;
    PrivacyRules m_rules;
    QList<qint32> m_processes;
};

} // namespace ostrel
