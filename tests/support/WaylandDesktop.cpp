#include "support/WaylandDesktop.h"

#include "support/PrivateEnvironment.h"

#include <QFile>
#include <QFileInfo>

#include <unistd.h>
#include <utility>

namespace ostrel {

namespace {

using namespace std::chrono_literals;

/// A name of its own, so that a compositor that is started again is found at the same place.
const QString displayName = QStringLiteral("wayland-1");

} // namespace

WaylandDesktop::WaylandDesktop(QList<Output> outputs) : m_outputs(std::move(outputs))
{
    m_environment = privateEnvironment(m_directory.path());
    put(QStringLiteral("WAYLAND_DISPLAY"), displayName);
    put(QStringLiteral("SWAYSOCK"), path(QStringLiteral("run/sway.sock")));
    writeConfiguration();
    for (const char *name : {"XDG_RUNTIME_DIR", "WAYLAND_DISPLAY", "SWAYSOCK"})
        m_entered.push_back(
            std::make_unique<ScopedVariable>(name, m_environment.value(QLatin1String(name)).toLocal8Bit()));
    startSway();
}

WaylandDesktop::~WaylandDesktop()
{
    m_programs.clear();
    m_sway.reset();
}

void WaylandDesktop::put(const QString &variable, const QString &value)
{
    m_environment.insert(variable, value);
}

void WaylandDesktop::writeConfiguration() const
{
    QFile file(path(QStringLiteral("sway.conf")));
    if (!file.open(QIODevice::WriteOnly))
        failTest(QStringLiteral("\"%1\" could not be written").arg(file.fileName()));
    file.write("xwayland disable\ndefault_border none\nfocus_follows_mouse no\nseat * hide_cursor 100\n");
    for (qsizetype i = 0; i < m_outputs.size(); ++i) {
        const Output &output = m_outputs[i];
        const QString line = QStringLiteral("output %1 resolution %2x%3 position %4 %5 scale %6 transform %7\n"
                                            "output %1 background %8 solid_color\n")
                                 .arg(nameOf(i))
                                 .arg(output.pixels.width())
                                 .arg(output.pixels.height())
                                 .arg(output.corner.x())
                                 .arg(output.corner.y())
                                 .arg(output.scale)
                                 .arg(output.transform, QString::fromLatin1(output.colour));
        file.write(line.toUtf8());
    }
}

void WaylandDesktop::startSway()
{
    QProcessEnvironment environment = m_environment;
    environment.remove(QStringLiteral("WAYLAND_DISPLAY")); // or it would run in a window of that one
    environment.insert(QStringLiteral("WLR_BACKENDS"), QStringLiteral("headless"));
    environment.insert(QStringLiteral("WLR_HEADLESS_OUTPUTS"), QString::number(m_outputs.size()));
    environment.insert(QStringLiteral("WLR_LIBINPUT_NO_DEVICES"), QStringLiteral("1"));
    environment.insert(QStringLiteral("WLR_RENDERER"), QStringLiteral("pixman"));
    if (::geteuid() == 0)
        environment.insert(QStringLiteral("LD_PRELOAD"), QStringLiteral(OSTREL_ROOT_FOR_SWAY));
    for (const char *name : {"run/wayland-1", "run/wayland-1.lock", "run/sway.sock"})
        QFile::remove(path(QLatin1String(name)));
    m_sway = launch(QStringLiteral("sway"), {QStringLiteral("-c"), path(QStringLiteral("sway.conf"))}, environment);
    waitUntil(QStringLiteral("sway"), 20s,
              [this] { return message({QStringLiteral("-t"), QStringLiteral("get_version")}).has_value(); });
}

void WaylandDesktop::restart()
{
    m_programs.clear();
    m_sway.reset();
    startSway();
}

void WaylandDesktop::command(const QString &words)
{
    if (!message({QStringLiteral("--"), words}))
        failTest(QStringLiteral("sway refused \"%1\"").arg(words));
}

QByteArray WaylandDesktop::ask(const QString &type)
{
    const auto answer = message({QStringLiteral("-t"), type});
    if (!answer)
        failTest(QStringLiteral("sway did not answer \"%1\"").arg(type));
    return *answer;
}

std::optional<QByteArray> WaylandDesktop::message(const QStringList &arguments)
{
    const auto process =
        launch(QStringLiteral("swaymsg"), QStringList(QStringLiteral("--raw")) + arguments, m_environment);
    if (process->waitForExit(10s) != 0)
        return std::nullopt;
    return process->readAllOutput();
}

TestProcess &WaylandDesktop::start(const QString &program, const QStringList &arguments)
{
    m_programs.push_back(launch(program, arguments, m_environment));
    return *m_programs.back();
}

TestProcess &WaylandDesktop::startTerminal(const QString &appId, const QString &title, const QByteArray &colour)
{
    // Its cursor has the colour of the background too, for a picture of one colour.
    const QString rgb = QString::fromLatin1(colour);
    TestProcess &terminal =
        start(QStringLiteral("foot"),
              {QStringLiteral("--config=/dev/null"), QStringLiteral("--app-id=") + appId,
               QStringLiteral("--title=") + title, QStringLiteral("--override=colors.background=") + rgb,
               QStringLiteral("--override=cursor.color=%1 %1").arg(rgb),
               QStringLiteral("--override=csd.preferred=none"), QStringLiteral("cat")});
    waitUntil(QStringLiteral("the terminal \"%1\"").arg(title), 20s, [&] {
        const auto answer = message({QStringLiteral("[app_id=%1] focus").arg(appId)});
        return answer.has_value();
    });
    return terminal;
}

void WaylandDesktop::showPicture(qsizetype output, const QString &file)
{
    command(QStringLiteral("output %1 background %2 center").arg(nameOf(output), file));
}

std::unique_ptr<TestProcess> WaylandDesktop::launch(const QString &program, const QStringList &arguments,
                                                    const QProcessEnvironment &environment)
{
    return std::make_unique<TestProcess>(TestProcess::Command{
        .program = program,
        .arguments = arguments,
        .environment = environment,
        .logFile = path(QFileInfo(program).fileName() + QStringLiteral(".log")),
    });
}

} // namespace ostrel
