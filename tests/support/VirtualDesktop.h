#pragma once

#include "support/TestProcess.h"

#include <QByteArray>
#include <QList>
#include <QPoint>
#include <QRect>
#include <QSize>
#include <QTemporaryDir>

#include <map>
#include <memory>
#include <optional>
#include <vector>

namespace ostrel {

/// An X session of the test's own: X server without a screen, message bus, window manager and programs, in a private
/// home and runtime folder. Whatever is missing or does not come up in time ends the test with the reason. Everything
/// that was started, also what those programs started, has ended when it is destroyed. Main thread.
class VirtualDesktop
{
public:
    using Window = quint32;

    /// As X numbers them.
    enum Button { LeftButton = 1, RightButton = 3, WheelUp = 4, WheelDown = 5 };

    struct Options {
        QSize size = {1280, 800};
        int depth = 24;
        bool windowManager = false;
        bool sessionBus = true;
        QStringList serverArguments = {};
    };

    struct Monitor {
        QString name;
        QRect pixels;
        bool primary = false;
        /// One monitor at most: it stands for the server's only connector, "screen".
        bool hasConnector = false;
    };

    explicit VirtualDesktop(const Options &options);
    ~VirtualDesktop();

    QByteArray display() const { return m_display; } ///< as in $DISPLAY
    /// What the session's programs run with.
    const QProcessEnvironment &environment() const { return m_environment; }
    /// A file or folder in the session's private folder.
    QString path(const QString &name) const { return m_directory.filePath(name); }
    /// Gives this process the session's display, bus and runtime folder until the desktop is destroyed.
    void enter();

    /// Divides the screen into monitors, instead of those that were there.
    void setMonitors(const QList<Monitor> &monitors);

    /// Starts a program of the session; it ends with the session at the latest.
    TestProcess &start(const QString &program, const QStringList &arguments = {});
    /// A terminal that shows what is typed. Returns when its window is there.
    Window startTerminal(const QString &title, const QString &geometry = QStringLiteral("60x10+40+60"));
    /// A text editor with a file of that name. Returns when its window is there.
    Window startEditor(const QString &fileName);
    /// The accessibility bus's launcher, the real one, with its switch off.
    TestProcess &startAccessibility();
    /// Runs a short program to its end; ends the test when it fails. @return its standard output
    QByteArray run(const QString &program, const QStringList &arguments);

    /// The visible window with exactly this title; where several have it, the newest.
    Window waitForWindow(const QString &title);
    /// The same at once; nothing where there is none.
    std::optional<Window> findWindow(const QString &title);
    /// All windows that can be seen, those without a title and menus included.
    QList<Window> visibleWindows();
    /// Brings a window to the front and waits until it is the active one. Needs the window manager.
    void activate(Window window);
    /// Where a window is on the screen, without what the window manager puts around it; empty when it has gone.
    QRect placeOf(Window window);
    /// Typed into whatever has the focus, as by hand.
    void type(const QString &text);
    /// A key, or several held together, as X calls them: "ctrl+q".
    void key(const QString &keys);
    void moveMouse(QPoint pixels);
    /// @param heldKey a key that is held meanwhile; empty for none
    void click(QPoint pixels, Button button = LeftButton, const QString &heldKey = {});

    TestProcess &server() { return *m_server; }
    TestProcess &bus() { return *m_bus; }
    TestProcess &windowManager() { return *m_windowManager; }
    /// Ends the X server and everything on it, and starts a new one on the same display.
    void restartServer();
    /// The same for the session bus.
    void restartBus();

private:
    Window waitForMatch(const QString &titlePattern);
    std::optional<Window> findMatch(const QString &titlePattern);
    void startServer();
    void startBus();
    void startWindowManager();
    void endStragglers() const;
    std::unique_ptr<TestProcess> launch(const QString &program, const QStringList &arguments);
    std::optional<QByteArray> tryRun(const QString &program, const QStringList &arguments);
    void put(const QString &variable, const QString &value);

    Options m_options;
    QTemporaryDir m_directory;
    QProcessEnvironment m_environment;
    QByteArray m_display;
    std::map<QByteArray, std::optional<QByteArray>> m_outerEnvironment;
    QStringList m_monitorNames;
    std::unique_ptr<TestProcess> m_server;
    std::unique_ptr<TestProcess> m_bus;
    std::unique_ptr<TestProcess> m_windowManager;
    std::vector<std::unique_ptr<TestProcess>> m_programs;
};

} // namespace ostrel
