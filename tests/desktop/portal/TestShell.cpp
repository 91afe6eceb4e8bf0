#include "TestShell.h"

#include <utility>

namespace ostrel {

namespace {

GVariant *stateOf(const QList<QByteArray> &connectors)
{
    GVariantBuilder monitors;
    g_variant_builder_init(&monitors, G_VARIANT_TYPE("a((ssss)a(siiddada{sv})a{sv})"));
    for (const QByteArray &connector : connectors)
        g_variant_builder_add(&monitors, "((ssss)@a(siiddada{sv})@a{sv})", connector.constData(), "Vendor", "Product",
                              "0x1", g_variant_new("a(siiddada{sv})", nullptr), g_variant_new("a{sv}", nullptr));
    constexpr guint32 serial = 7;
    return g_variant_new("(u@a((ssss)a(siiddada{sv})a{sv})@a(iiduba(ssss)a{sv})@a{sv})", serial,
                         g_variant_builder_end(&monitors), g_variant_new("a(iiduba(ssss)a{sv})", nullptr),
                         g_variant_new("a{sv}", nullptr));
}

} // namespace

TestShell::TestShell(const QByteArray &busAddress, QList<QByteArray> connectors)
    : m_connectors(std::move(connectors)),
      m_service(busAddress, "org.gnome.Mutter.DisplayConfig", [this](GDBusMessage *call) { return handle(call); })
{}

bool TestShell::handle(GDBusMessage *call)
{
    if (g_strcmp0(g_dbus_message_get_member(call), "GetCurrentState") != 0)
        return false;
    const std::scoped_lock lock(m_mutex);
    if (!m_hangs)
        m_service.reply(call, stateOf(m_connectors));
    return true;
}

void TestShell::change(const QList<QByteArray> &connectors)
{
    changeSilently(connectors);
    m_service.tell(monitorsChanged);
    m_service.waitUntilTold();
}

void TestShell::changeSilently(const QList<QByteArray> &connectors)
{
    const std::scoped_lock lock(m_mutex);
    m_connectors = connectors;
}

void TestShell::hang()
{
    const std::scoped_lock lock(m_mutex);
    m_hangs = true;
}

} // namespace ostrel
