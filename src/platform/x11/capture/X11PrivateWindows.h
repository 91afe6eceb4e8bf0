#pragma once

#include "platform/x11/base/X11Connection.h"
#include "platform/x11/capture/X11Privacy.h"
#include "platform/x11/capture/X11WindowJudge.h"

#include <QList>
#include <QRect>

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <unordered_map>

namespace ostrel {

/// A mapped child of the root window: a window, or the frame that a window manager has put around it.
struct X11TopWindow {
    QRect outer; ///< with its border, pixels on the X screen
    int border = 0;
    xcb_visualid_t visual = 0;
    bool isDrawn = false; ///< it has been asked about, and shows anything
    bool isPrivate = false;
    /// When it was noticed that it was mapped or has another size: what it shows may not be its own picture yet.
    std::chrono::milliseconds changedAt{};
};

/// Knows the windows on the screen, and which of them must not be in any picture. Events tell of windows that come,
/// go and are given other names; only those are asked about, so while nothing happens it costs no round trip. Shared by
/// all who take pictures over one connection. One thread at a time.
class X11PrivateWindows
{
public:
    using Windows = std::map<xcb_window_t, X11TopWindow>;

    /// Reads the windows that are there; a few round trips for each.
    X11PrivateWindows(std::shared_ptr<X11Connection> connection, X11Privacy privacy,
                      std::function<std::chrono::milliseconds()> monotonicTime);

    /// The windows of these processes are private, too.
    void leaveOut(const QList<qint32> &processes);

    /// Asks about all windows of which something was told. What is told from now on is a doubt.
    void update();

    const Windows &windows() const { return m_windows; }
    /// The private ones that are on the screen; as of `update`.
    const std::set<xcb_window_t> &privateWindows() const { return m_private; }
    /// Windows that may have become private since `update`, as far as events have been dispatched. They may have gone
    /// again: a picture taken since then may show what was there in between.
    const std::set<xcb_window_t> &doubts() const { return m_doubts; }

private:
    void readAll();
    void doubtAll();
    void askDoubtful();
    void ask(xcb_window_t window);
    void logCount();
    void handle(const xcb_generic_event_t &event);
    void handleOnRoot(const xcb_generic_event_t &event);
    void moved(const xcb_configure_notify_event_t &event);
    void appear(xcb_window_t window);
    void disappear(xcb_window_t window);
    void doubtInner(xcb_window_t inner);

    const std::shared_ptr<X11Connection> m_connection;
    const std::function<std::chrono::milliseconds()> m_monotonicTime;
    X11WindowJudge m_judge;
    Windows m_windows;
    std::set<xcb_window_t> m_private;
    std::set<xcb_window_t> m_doubts;
    std::size_t m_loggedCount = 0;
    std::unordered_map<xcb_window_t, xcb_window_t> m_topOf; ///< of each window that was asked about
    const X11Subscription m_events;
};

} // namespace ostrel
