#include "TestShell.h"

#include <utility>

namespace ostrel {

namespace {

GVariant *namesOf(const QByteArray &connector)
{
    const QList<QByteArray> parts = connector.split('/');
    return g_variant_new("(ssss)", parts.first().constData(), "Vendor", "Product", parts.last().constData());
}

GVariant *stateOf(const QList<QByteArray> &connectors, const QList<QByteArray> &switchedOff)
{
    GVariantBuilder monitors;
    g_variant_builder_init(&monitors, G_VARIANT_TYPE("a((ssss)a(siiddada{sv})a{sv})"));
    GVariantBuilder parts;
    g_variant_builder_init(&parts, G_VARIANT_TYPE("a(iiduba(ssss)a{sv})"));
    for (const QByteArray &connector : connectors) {
        g_variant_builder_add(&monitors, "(@(ssss)@a(siiddada{sv})@a{sv})", namesOf(connector),
                              g_variant_new("a(siiddada{sv})", nullptr), g_variant_new("a{sv}", nullptr));
        if (switchedOff.contains(connector))
            continue;
        GVariantBuilder showing;
        g_variant_builder_init(&showing, G_VARIANT_TYPE("a(ssss)"));
        g_variant_builder_add_value(&showing, namesOf(connector));
        g_variant_builder_add(&parts, "(iidub@a(ssss)@a{sv})", 0, 0, 1.0, 0U, FALSE, g_variant_builder_end(&showing),
                              g_variant_new("a{sv}", nullptr));
    }
    constexpr guint32 serial = 7;
    return g_variant_new("(u@a((ssss)a(siiddada{sv})a{sv})@a(iiduba(ssss)a{sv})@a{sv})", serial,
                         g_variant_builder_end(&monitors), g_variant_builder_end(&parts),
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
    if (m_patience == 0)
        return true;
    if (m_patience != everlasting)
        --m_patience;
    m_service.reply(call, stateOf(m_connectors, m_switchedOff));
    ++m_answers;
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

void TestShell::switchOff(const QByteArray &connector)
{
    const std::scoped_lock lock(m_mutex);
    m_switchedOff.append(connector);
}

void TestShell::hang()
{
    hangAfter(0);
}

void TestShell::hangAfter(int answers)
{
    const std::scoped_lock lock(m_mutex);
    m_patience = answers;
}

void TestShell::recover()
{
    hangAfter(everlasting);
}

int TestShell::answers() const
{
    const std::scoped_lock lock(m_mutex);
    return m_answers;
}

} // namespace ostrel
