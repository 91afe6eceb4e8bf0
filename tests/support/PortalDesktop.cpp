#include "support/PortalDesktop.h"

#include "platform/sessionbus/BusCall.h"
#include "platform/sessionbus/BusConnection.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <utility>

namespace ostrel {

namespace {

using namespace std::chrono_literals;

void write(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
        failTest(QStringLiteral("\"%1\" could not be written").arg(path));
}

} // namespace

PortalDesktop::PortalDesktop(QList<WaylandDesktop::Output> outputs) : m_screens(std::move(outputs))
{
    writeConfiguration();
    willChoose(0);
    m_pipeWire = std::make_unique<PipeWireSession>(environment(), m_screens.path(QStringLiteral(".")));
    m_grants = launch(QStringLiteral("/usr/libexec/xdg-permission-store"), environment());
    waitForName("org.freedesktop.impl.portal.PermissionStore");
    startBackend();
    m_portal = launch(QStringLiteral("/usr/libexec/xdg-desktop-portal"), environment());
    waitForName("org.freedesktop.portal.Desktop");
}

PortalDesktop::~PortalDesktop()
{
    m_portal.reset();
    m_backend.reset();
    m_grants.reset();
    m_pipeWire.reset();
}

QProcessEnvironment PortalDesktop::environment() const
{
    QProcessEnvironment environment = m_screens.environment();
    environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), QString::fromLatin1(m_bus.address()));
    environment.insert(QStringLiteral("XDG_CURRENT_DESKTOP"), QStringLiteral("sway"));
    environment.insert(QStringLiteral("GSETTINGS_BACKEND"), QStringLiteral("memory"));
    return environment;
}

void PortalDesktop::writeConfiguration() const
{
    const QString choice = m_screens.path(QStringLiteral("choice"));
    write(m_screens.path(QStringLiteral("config/xdg-desktop-portal-wlr/config")),
          "[screencast]\nchooser_type=simple\nchooser_cmd=cat " + choice.toUtf8() + "\n");
}

void PortalDesktop::willChoose(qsizetype output)
{
    answer(WaylandDesktop::nameOf(output).toLatin1() + '\n');
}

void PortalDesktop::willDecline()
{
    answer({});
}

void PortalDesktop::answer(const QByteArray &line) const
{
    write(m_screens.path(QStringLiteral("choice")), line);
}

void PortalDesktop::startBackend()
{
    QProcessEnvironment environment = this->environment();
    environment.insert(QStringLiteral("LD_PRELOAD"), QStringLiteral(OSTREL_PICTURE_MEMORY_FOR_PORTAL));
    m_backend = launch(QStringLiteral("/usr/libexec/xdg-desktop-portal-wlr"), environment);
    waitForName("org.freedesktop.impl.portal.desktop.wlr");
}

std::unique_ptr<TestProcess> PortalDesktop::launch(const QString &program, const QProcessEnvironment &environment) const
{
    return std::make_unique<TestProcess>(TestProcess::Command{
        .program = program,
        .arguments = {},
        .environment = environment,
        .logFile = m_screens.path(QFileInfo(program).fileName() + QStringLiteral(".log")),
    });
}

void PortalDesktop::waitForName(const char *name) const
{
    const GlibHandle<GMainContext> context(g_main_context_new());
    const MainContextScope scope(context.get());
    GlibHandle<GError> error;
    const auto connection = connectToBus(m_bus.address(), nullptr, error);
    if (!connection)
        failTest(QStringLiteral("the bus can't be reached: %1").arg(QString::fromUtf8(error->message)));
    waitUntil(QString::fromLatin1(name), 20s,
              [&] { return hasOwner({.connection = connection.get(), .patience = 5s}, name).value_or(false); });
    closeBus(connection.get(), context.get());
}

} // namespace ostrel
