#pragma once

#include "base/Error.h"
#include "context/ForegroundSource.h"

#include <QList>
#include <QString>
#include <functional>
#include <optional>

/// What a desktop offers to a recording, as kinds and numbers; the words stand with the checks.
namespace ostrel {

enum class SessionKind { None, X11, Wayland };

/// A display of the session.
struct DisplayFacts {
    qint64 width = 0; ///< pixels
    qint64 height = 0;
    /// Why no picture of it could be taken, for one was tried.
    std::optional<Error> pictureFault;
};

/// A part of the X server that recordings use.
struct ExtensionFacts {
    quint32 major = 0;
    quint32 minor = 0;
    bool works = false; ///< it was tried and did what a recording asks of it
};

struct WindowManagerFacts {
    QString name; ///< empty where it has none
    bool tellsActiveWindow = false;
};

/// The desktop's portal, where pictures come from there: its streams are not tried, for the desktop would tell the user
/// that the screen is seen, and may ask first.
struct PortalFacts {
    std::optional<quint32> version; ///< of its screen casts; absent while it does not run
    bool isGranted = false;         ///< the user has agreed before
    bool isChosen = false;          ///< by $OSTREL_CAPTURE, whatever else there is
};

/// A screen, looked at and tried. What is absent is not there; what pictures of an X server need besides is asked of X
/// servers only.
struct ScreenFacts {
    QList<DisplayFacts> displays; ///< in the order of a recording: the main one first
    std::optional<ExtensionFacts> sharedMemory;
    std::optional<ExtensionFacts> changeTracking;
    std::optional<ExtensionFacts> pointer;
    std::optional<ExtensionFacts> monitors;
    std::optional<WindowManagerFacts> windowManager;
    std::optional<PortalFacts> portal = std::nullopt; ///< then nothing is known of displays
};

enum class BusState {
    NoAddress,   ///< the session names none
    Unreachable, ///< nobody listens where it should be
    Silent,      ///< somebody listens and does not answer
    Answers,
};

/// A service on the session bus.
struct ServiceFacts {
    bool isRunning = false;
    bool canBeStarted = false; ///< the bus starts it when somebody calls it
};

struct BusFacts {
    BusState state = BusState::NoAddress;
    ServiceFacts accessibility;
    /// Absent where the service does not run or does not answer.
    std::optional<bool> isAccessibilityGranted;
    ServiceFacts keyring;
};

/// A browser, or a program built on one, that lets other programs drive it: remote debugging is switched on.
struct DebuggedBrowserFacts {
    qint64 process = 0;
    quint16 port = 0; ///< of 127.0.0.1
};

struct SystemBusFacts {
    BusState state = BusState::Unreachable;
    bool isLogindThere = false;
    bool doesLogindAnswer = false;
};

/// The questions to a desktop. A server that hangs may keep `screen`, `unavailable` and the buses from returning, so
/// each is asked on a thread of its own that can be left behind; they hold nothing that belongs to somebody else. They
/// change nothing on the desktop and start nothing there.
struct DesktopProbes {
    SessionKind session = SessionKind::None;
    QString display; ///< as in $DISPLAY, or in $WAYLAND_DISPLAY
    /// Where there is a session. @return the error of the connection
    std::function<Result<ScreenFacts>()> screen;
    /// Where there is a session: what it never tells of the window in front.
    std::function<QList<UnavailableFact>()> unavailable;
    std::function<BusFacts()> bus;
    std::function<SystemBusFacts()> systemBus;
    /// Looks at processes alone: it connects to nothing and takes some milliseconds.
    std::function<QList<DebuggedBrowserFacts>()> debuggedBrowsers;
};

} // namespace ostrel
