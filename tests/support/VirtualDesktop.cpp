#include "support/VirtualDesktop.h"

#include "support/PrivateEnvironment.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

#include <csignal>
#include <unistd.h>

namespace ostrel {

namespace {

using namespace std::chrono_literals;

/// Marks every process of one desktop: programs that the bus started by itself are found by it.
const QString marker = QStringLiteral("OSTREL_TEST_DESKTOP");

QByteArray environmentOf(const QString &pid)
{
    QFile file(QStringLiteral("/proc/%1/environ").arg(pid));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QString monitorGeometry(const QRect &pixels)
{
    // The size in millimetres at 96 dots an inch.
    const auto millimetres = [](int dots) { return dots * 254 / 960; };
    return QStringLiteral("%1/%2x%3/%4+%5+%6")
        .arg(pixels.width())
        .arg(millimetres(pixels.width()))
        .arg(pixels.height())
        .arg(millimetres(pixels.height()))
        .arg(pixels.x())
        .arg(pixels.y());
}

QString exactly(const QString &title)
{
    return QStringLiteral("^%1$").arg(QRegularExpression::escape(title));
}

/// A number that no other test takes. Far from 0: a server that finds itself a number takes a low one, and must not get
/// ours while we restart.
qint64 ownDisplayNumber()
{
    constexpr int desktopsAProcess = 4;
    static int count = 0;
    return 1000 + (QCoreApplication::applicationPid() * desktopsAProcess + count++ % desktopsAProcess) % 50'000;
}

} // namespace

VirtualDesktop::VirtualDesktop(const Options &options) : m_options(options)
{
    if (!m_directory.isValid())
        failTest(QStringLiteral("No temporary folder could be made: %1").arg(m_directory.errorString()));
    m_environment = privateEnvironment(m_directory.path());
    put(marker, m_directory.path());
    m_display = ':' + QByteArray::number(ownDisplayNumber());
    startServer();
    put(QStringLiteral("DISPLAY"), QString::fromLatin1(m_display));
    if (options.sessionBus)
        startBus();
    if (options.windowManager)
        startWindowManager();
}

VirtualDesktop::~VirtualDesktop()
{
    while (!m_programs.empty())
        m_programs.pop_back();
    m_windowManager.reset();
    m_bus.reset();
    m_server.reset();
    endStragglers();
    for (const auto &[variable, value] : m_outerEnvironment) {
        if (value)
            qputenv(variable.constData(), *value);
        else
            qunsetenv(variable.constData());
    }
}

void VirtualDesktop::put(const QString &variable, const QString &value)
{
    m_environment.insert(variable, value);
}

void VirtualDesktop::startServer()
{
    const QString screen =
        QStringLiteral("%1x%2x%3").arg(m_options.size.width()).arg(m_options.size.height()).arg(m_options.depth);
    // Without -noreset monitors vanish with the last client. The server says its number when it is ready.
    const QStringList arguments{
        QString::fromLatin1(m_display), QStringLiteral("-displayfd"), QStringLiteral("1"),
        QStringLiteral("-screen"),      QStringLiteral("0"),          screen,
        QStringLiteral("-nolisten"),    QStringLiteral("tcp"),        QStringLiteral("-noreset")};
    m_server = launch(QStringLiteral("Xvfb"), arguments + m_options.serverArguments);
    if (':' + m_server->readLine(20s) != m_display)
        failTest(QStringLiteral("the X server took another display than it was told"));
}

void VirtualDesktop::startBus()
{
    const QString address = QStringLiteral("unix:path=%1").arg(path(QStringLiteral("run/bus")));
    put(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), address);
    m_bus = launch(QStringLiteral("dbus-daemon"),
                   {QStringLiteral("--session"), QStringLiteral("--nofork"), QStringLiteral("--nopidfile"),
                    QStringLiteral("--address=%1").arg(address), QStringLiteral("--print-address=1")});
    m_bus->readLine(10s);
}

void VirtualDesktop::startWindowManager()
{
    // Its properties are there before it answers: a program that starts in between waits five seconds for the place of
    // its window. Its start-up command runs when it is ready.
    const QString ready = path(QStringLiteral("window-manager-is-ready"));
    QFile::remove(ready);
    m_windowManager = launch(QStringLiteral("openbox"), {QStringLiteral("--sm-disable"), QStringLiteral("--startup"),
                                                         QStringLiteral("touch ") + ready});
    waitUntil(QStringLiteral("the window manager"), 10s, [&ready] { return QFile::exists(ready); });
}

void VirtualDesktop::restartServer()
{
    m_programs.clear();
    m_windowManager.reset();
    m_server.reset();
    startServer();
    if (m_options.windowManager)
        startWindowManager();
}

void VirtualDesktop::restartBus()
{
    m_bus.reset();
    startBus();
}

void VirtualDesktop::enter()
{
    for (const char *variable : {"DISPLAY", "XDG_RUNTIME_DIR", "DBUS_SESSION_BUS_ADDRESS", "GSETTINGS_BACKEND"}) {
        const QByteArray name(variable);
        m_outerEnvironment.try_emplace(name, qEnvironmentVariableIsSet(variable) ? std::optional(qgetenv(variable))
                                                                                 : std::nullopt);
        qputenv(variable, m_environment.value(QLatin1String(variable)).toLocal8Bit());
    }
}

void VirtualDesktop::setMonitors(const QList<Monitor> &monitors)
{
    for (const QString &name : std::exchange(m_monitorNames, {}))
        run(QStringLiteral("xrandr"), {QStringLiteral("--delmonitor"), name});
    for (const Monitor &monitor : monitors) {
        run(QStringLiteral("xrandr"),
            {QStringLiteral("--setmonitor"), (monitor.primary ? QStringLiteral("*") : QString()) + monitor.name,
             monitorGeometry(monitor.pixels),
             monitor.hasConnector ? QStringLiteral("screen") : QStringLiteral("none")});
        m_monitorNames.append(monitor.name);
    }
}

TestProcess &VirtualDesktop::start(const QString &program, const QStringList &arguments)
{
    m_programs.push_back(launch(program, arguments));
    return *m_programs.back();
}

VirtualDesktop::Window VirtualDesktop::startTerminal(const QString &title, const QString &geometry)
{
    start(QStringLiteral("xterm"), {QStringLiteral("-T"), title, QStringLiteral("-geometry"), geometry,
                                    QStringLiteral("-e"), QStringLiteral("cat")});
    return waitForWindow(title);
}

VirtualDesktop::Window VirtualDesktop::startEditor(const QString &fileName)
{
    const QString file = path(QStringLiteral("home/") + fileName);
    if (QFile created(file); !created.open(QIODevice::WriteOnly))
        failTest(QStringLiteral("\"%1\" could not be made").arg(file));
    start(QStringLiteral("mousepad"), {file});
    // The path in front of the name is shown in full or with a tilde, depending on the user.
    return waitForMatch(QStringLiteral("%1 - Mousepad$").arg(QRegularExpression::escape(fileName)));
}

TestProcess &VirtualDesktop::startAccessibility()
{
    TestProcess &launcher =
        start(QStringLiteral("/usr/libexec/at-spi-bus-launcher"), {QStringLiteral("--launch-immediately")});
    waitUntil(QStringLiteral("the accessibility bus"), 10s, [this] {
        const auto answer =
            tryRun(QStringLiteral("dbus-send"),
                   {QStringLiteral("--session"), QStringLiteral("--dest=org.freedesktop.DBus"),
                    QStringLiteral("--print-reply"), QStringLiteral("/org/freedesktop/DBus"),
                    QStringLiteral("org.freedesktop.DBus.NameHasOwner"), QStringLiteral("string:org.a11y.Bus")});
        return answer && answer->contains("boolean true");
    });
    return launcher;
}

QByteArray VirtualDesktop::run(const QString &program, const QStringList &arguments)
{
    const auto output = tryRun(program, arguments);
    if (!output)
        failTest(QStringLiteral("\"%1 %2\" failed").arg(program, arguments.join(QLatin1Char(' '))));
    return *output;
}

std::optional<QByteArray> VirtualDesktop::tryRun(const QString &program, const QStringList &arguments)
{
    const auto process = launch(program, arguments);
    if (process->waitForExit(10s) != 0)
        return std::nullopt;
    return process->readAllOutput();
}

VirtualDesktop::Window VirtualDesktop::waitForWindow(const QString &title)
{
    return waitForMatch(exactly(title));
}

std::optional<VirtualDesktop::Window> VirtualDesktop::findWindow(const QString &title)
{
    return findMatch(exactly(title));
}

VirtualDesktop::Window VirtualDesktop::waitForMatch(const QString &titlePattern)
{
    std::optional<Window> found;
    waitUntil(QStringLiteral("a window with the title \"%1\"").arg(titlePattern), 20s, [&] {
        found = findMatch(titlePattern);
        return found.has_value();
    });
    return *found;
}

std::optional<VirtualDesktop::Window> VirtualDesktop::findMatch(const QString &titlePattern)
{
    const auto windows = tryRun(QStringLiteral("xdotool"), {QStringLiteral("search"), QStringLiteral("--onlyvisible"),
                                                            QStringLiteral("--name"), titlePattern});
    const Window newest = windows ? windows->trimmed().split('\n').last().toUInt() : 0;
    return newest != 0 ? std::optional(newest) : std::nullopt;
}

QList<VirtualDesktop::Window> VirtualDesktop::visibleWindows()
{
    QList<Window> windows;
    const auto lines = tryRun(QStringLiteral("xdotool"), {QStringLiteral("search"), QStringLiteral("--onlyvisible"),
                                                          QStringLiteral("--name"), QStringLiteral(".*")});
    for (const QByteArray &line : lines.value_or(QByteArray()).split('\n')) {
        if (const Window window = line.toUInt(); window != 0)
            windows.append(window);
    }
    return windows;
}

void VirtualDesktop::activate(Window window)
{
    const QString id = QString::number(window);
    run(QStringLiteral("xdotool"), {QStringLiteral("windowactivate"), id});
    waitUntil(QStringLiteral("window %1 to be active").arg(id), 10s, [&] {
        const auto active = tryRun(QStringLiteral("xdotool"), {QStringLiteral("getactivewindow")});
        return active && active->trimmed() == id.toLatin1();
    });
}

void VirtualDesktop::type(const QString &text)
{
    run(QStringLiteral("xdotool"), {QStringLiteral("type"), QStringLiteral("--"), text});
}

void VirtualDesktop::key(const QString &keys)
{
    run(QStringLiteral("xdotool"), {QStringLiteral("key"), keys});
}

void VirtualDesktop::moveMouse(QPoint pixels)
{
    run(QStringLiteral("xdotool"),
        {QStringLiteral("mousemove"), QString::number(pixels.x()), QString::number(pixels.y())});
}

void VirtualDesktop::click(QPoint pixels, Button button, const QString &heldKey)
{
    QStringList hands{QStringLiteral("mousemove"), QString::number(pixels.x()), QString::number(pixels.y())};
    const QStringList pressed{QStringLiteral("click"), QString::number(button)};
    if (heldKey.isEmpty())
        hands += pressed;
    else
        hands +=
            QStringList{QStringLiteral("keydown"), heldKey} + pressed + QStringList{QStringLiteral("keyup"), heldKey};
    run(QStringLiteral("xdotool"), hands);
}

QRect VirtualDesktop::placeOf(Window window)
{
    QHash<QByteArray, int> told;
    const auto lines = tryRun(QStringLiteral("xdotool"), {QStringLiteral("getwindowgeometry"),
                                                          QStringLiteral("--shell"), QString::number(window)});
    for (const QByteArray &line : lines.value_or(QByteArray()).split('\n'))
        told.insert(line.split('=').first(), line.mid(line.indexOf('=') + 1).toInt());
    return {told.value("X"), told.value("Y"), told.value("WIDTH"), told.value("HEIGHT")};
}

std::unique_ptr<TestProcess> VirtualDesktop::launch(const QString &program, const QStringList &arguments)
{
    return std::make_unique<TestProcess>(TestProcess::Command{
        .program = program,
        .arguments = arguments,
        .environment = m_environment,
        .logFile = path(QFileInfo(program).fileName() + QStringLiteral(".log")),
    });
}

void VirtualDesktop::endStragglers() const
{
    const QByteArray mark = QStringLiteral("%1=%2").arg(marker, m_directory.path()).toUtf8() + '\0';
    for (const int signal : {SIGTERM, SIGKILL}) {
        const auto endAll = [&] {
            bool anyLeft = false;
            for (const QString &pid : QDir(QStringLiteral("/proc")).entryList({QStringLiteral("[1-9]*")}, QDir::Dirs)) {
                if (pid.toLongLong() == ::getpid() || !environmentOf(pid).contains(mark))
                    continue;
                ::kill(pid_t(pid.toLongLong()), signal);
                anyLeft = true;
            }
            return !anyLeft;
        };
        for (int attempt = 0; attempt < 100; ++attempt) {
            if (endAll())
                return;
            ::usleep(10'000);
        }
    }
}

} // namespace ostrel
