#include "support/MockService.h"

#include "platform/sessionbus/BusCall.h"
#include "platform/sessionbus/BusConnection.h"

namespace ostrel {

namespace {

using namespace std::chrono_literals;

const char *const mockInterface = "org.freedesktop.DBus.Mock";

/// A text in GVariant's text form.
QByteArray quoted(QByteArray text)
{
    return '\'' + text.replace('\\', "\\\\").replace('\'', "\\'") + '\'';
}

} // namespace

/// The test's own connection: a program for each call would take longer than what is tested.
class MockService::Connection
{
public:
    explicit Connection(const QByteArray &address)
    {
        // Only meanwhile: the end of mocks need not be in the order of their beginning.
        const MainContextScope scope(m_context.get());
        GlibHandle<GError> error;
        m_connection = connectToBus(address, nullptr, error);
        if (!m_connection)
            failTest(QStringLiteral("the bus can't be reached: %1").arg(QString::fromUtf8(error->message)));
    }
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;
    ~Connection()
    {
        m_connection.reset();
        // One that was lost waits in there to be reported, and would keep itself alive.
        while (g_main_context_iteration(m_context.get(), FALSE) != FALSE) {
        }
    }

    BusLine line() const { return {.connection = m_connection.get(), .patience = 10s, .cancellable = nullptr}; }

private:
    const GlibHandle<GMainContext> m_context{g_main_context_new()};
    GlibHandle<GDBusConnection> m_connection;
};

MockService::MockService(MessageBus &bus, Object object)
    : m_bus(bus), m_object(std::move(object)),
      m_arguments{QString::fromLatin1(m_object.service), QString::fromLatin1(m_object.path),
                  QString::fromLatin1(m_object.interface)}
{
    start();
}

MockService::MockService(MessageBus &bus, Object object, const QString &templateName)
    : m_bus(bus), m_object(std::move(object)), m_arguments{QStringLiteral("--template"), templateName}
{
    start();
}

MockService::~MockService() = default;

void MockService::start()
{
    const bool isSystem = m_bus.environment().contains(QStringLiteral("DBUS_SYSTEM_BUS_ADDRESS"));
    const QString kind = isSystem ? QStringLiteral("--system") : QStringLiteral("--session");
    m_connection = std::make_unique<Connection>(m_bus.address());
    // Debian's own interpreter: its packages are not there for another one.
    m_process = std::make_unique<TestProcess>(TestProcess::Command{
        .program = QStringLiteral("/usr/bin/python3"),
        .arguments = QStringList{QStringLiteral("-m"), QStringLiteral("dbusmock"), kind} + m_arguments,
        .environment = m_bus.environment(),
        .logFile = m_bus.path(QStringLiteral("mock.log"))});
    waitUntil(QStringLiteral("the mock of %1").arg(QString::fromLatin1(m_object.service)), 20s, [this] {
        GlibHandle<GError> error;
        const BusMethod ping{m_object.service.constData(), m_object.path.constData(), "org.freedesktop.DBus.Peer",
                             "Ping"};
        return callBus(m_connection->line(), ping, nullptr, "()", error) != nullptr;
    });
}

void MockService::restart()
{
    m_process.reset();
    start();
}

void MockService::addMethod(const char *name, const char *argumentTypes, const char *answerType, const QByteArray &code)
{
    call({.service = m_object.service, .path = m_object.path, .interface = mockInterface}, "AddMethod",
         '(' + quoted(m_object.interface) + ',' + quoted(name) + ',' + quoted(argumentTypes) + ',' +
             quoted(answerType) + ',' + quoted(code) + ')');
}

void MockService::emitSignal(const char *name, const char *types, const QByteArray &arguments)
{
    emitSignal(m_object, name, types, arguments);
}

void MockService::emitSignal(const Object &from, const char *name, const char *types, const QByteArray &arguments)
{
    call({.service = from.service, .path = from.path, .interface = mockInterface}, "EmitSignal",
         '(' + quoted(from.interface) + ',' + quoted(name) + ',' + quoted(types) + ',' + "@av " + arguments + ')');
}

QByteArray MockService::call(const Object &object, const char *method, const QByteArray &arguments) const
{
    GlibHandle<GError> error;
    GVariant *const parsed = g_variant_parse(nullptr, arguments.constData(), nullptr, nullptr, ErrorOut(error));
    GlibHandle<GVariant> answer;
    if (parsed != nullptr)
        answer = callBus(m_connection->line(),
                         {object.service.constData(), object.path.constData(), object.interface.constData(), method},
                         parsed, "*", error);
    if (!answer)
        failTest(QStringLiteral("%1: %2").arg(QLatin1String(method), QString::fromUtf8(error->message)));
    gchar *const text = g_variant_print(answer.get(), FALSE);
    const QByteArray copy(text);
    g_free(text);
    return copy;
}

} // namespace ostrel
