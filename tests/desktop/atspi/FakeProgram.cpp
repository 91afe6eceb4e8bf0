#include "FakeProgram.h"

#include "platform/sessionbus/SessionBusAddress.h"
#include "support/TestProcess.h"

#include <gtest/gtest.h>

namespace ostrel {

namespace {

constexpr const char *prefix = "/org/a11y/atspi/accessible/";
constexpr int timeoutMs = 5000;

/// @param arguments floating, or null
GlibHandle<GVariant> call(GDBusConnection *bus, const char *service, const char *path, const char *interface,
                          const char *method, GVariant *arguments)
{
    GlibHandle<GError> error;
    GlibHandle<GVariant> reply(g_dbus_connection_call_sync(bus, service, path, interface, method, arguments, nullptr,
                                                           G_DBUS_CALL_FLAGS_NONE, timeoutMs, nullptr,
                                                           ErrorOut(error)));
    if (!reply)
        failTest(QStringLiteral("%1 failed: %2").arg(QLatin1String(method), QString::fromUtf8(error->message)));
    return reply;
}

GlibHandle<GDBusConnection> connected(const QByteArray &address)
{
    GlibHandle<GError> error;
    auto bus = connectToBus(address, nullptr, error);
    if (!bus)
        failTest(QString::fromUtf8(error->message));
    return bus;
}

GlibHandle<GDBusConnection> accessibilityBus()
{
    const auto session = connected(sessionBusAddress().toUtf8());
    const auto reply = call(session.get(), "org.a11y.Bus", "/org/a11y/bus", "org.a11y.Bus", "GetAddress", nullptr);
    const GlibHandle<GVariant> address(g_variant_get_child_value(reply.get(), 0));
    return connected(g_variant_get_string(address.get(), nullptr));
}

GVariant *textMap(const QHash<QByteArray, QByteArray> &map)
{
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE("(a{ss})"));
    g_variant_builder_open(&builder, G_VARIANT_TYPE("a{ss}"));
    for (auto entry = map.begin(); entry != map.end(); ++entry)
        g_variant_builder_add(&builder, "{ss}", entry.key().constData(), entry.value().constData());
    g_variant_builder_close(&builder);
    return g_variant_builder_end(&builder);
}

GVariant *stateWords(const QList<int> &states)
{
    quint64 bits = 0;
    for (const int state : states)
        bits |= quint64(1) << state;
    const std::array words{quint32(bits), quint32(bits >> 32)};
    return g_variant_new("(@au)", g_variant_new_fixed_array(G_VARIANT_TYPE_UINT32, words.data(), 2, sizeof(quint32)));
}

} // namespace

FakeProgram::FakeProgram() : m_bus(accessibilityBus())
{
    set("root", {.role = 75, .name = QStringLiteral("fake")});
    m_filter = g_dbus_connection_add_filter(m_bus.get(), &FakeProgram::filter, this, nullptr);
    embed();
    takeQuestions();
}

FakeProgram::~FakeProgram()
{
    for (const QString &interface : std::as_const(m_interfaces)) {
        // What the user typed is nobody's business.
        EXPECT_FALSE(interface.contains(QLatin1String("Text"))) << qPrintable(interface);
        EXPECT_FALSE(interface.contains(QLatin1String("Value"))) << qPrintable(interface);
    }
    g_dbus_connection_remove_filter(m_bus.get(), m_filter);
    g_dbus_connection_close_sync(m_bus.get(), nullptr, nullptr);
}

void FakeProgram::embed()
{
    call(m_bus.get(), "org.a11y.atspi.Registry", "/org/a11y/atspi/accessible/root", "org.a11y.atspi.Socket", "Embed",
         g_variant_new("(@(so))", reference("root")));
}

void FakeProgram::set(const QByteArray &name, const Object &object)
{
    const QMutexLocker lock(&m_mutex);
    m_objects.insert(name, object);
}

void FakeProgram::answer(const QByteArray &name, const QByteArray &method, Answer answer)
{
    const QMutexLocker lock(&m_mutex);
    m_answers[name + '.' + method] = std::move(answer);
}

void FakeProgram::answerSearch(const QByteArray &window, const QList<QByteArray> &found)
{
    answer(window, "GetMatches", [this, found] { return references(found); });
}

void FakeProgram::tellFocus(const QByteArray &name, bool isFocused)
{
    GVariant *const details =
        g_variant_new("(siiva{sv})", "focused", int(isFocused), 0, g_variant_new_int32(0), nullptr);
    GlibHandle<GError> error;
    g_dbus_connection_emit_signal(m_bus.get(), nullptr, (prefix + name).constData(), "org.a11y.atspi.Event.Object",
                                  "StateChanged", details, ErrorOut(error));
    EXPECT_FALSE(error);
}

bool FakeProgram::isListenedTo(const QByteArray &name) const
{
    const auto rules = call(m_bus.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
                            "org.freedesktop.DBus.Debug.Stats", "GetAllMatchRules", nullptr);
    char *const text = g_variant_print(rules.get(), FALSE);
    const QByteArray printed(text);
    g_free(text);
    return printed.contains("path='" + QByteArray(prefix) + name + '\'');
}

QList<QByteArray> FakeProgram::takeQuestions()
{
    const QMutexLocker lock(&m_mutex);
    return std::exchange(m_questions, {});
}

QByteArray FakeProgram::busName() const
{
    return g_dbus_connection_get_unique_name(m_bus.get());
}

GVariant *FakeProgram::reference(const QByteArray &name) const
{
    return g_variant_new("(so)", busName().constData(), (prefix + name).constData());
}

GVariant *FakeProgram::references(const QList<QByteArray> &names) const
{
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE("(a(so))"));
    g_variant_builder_open(&builder, G_VARIANT_TYPE("a(so)"));
    for (const QByteArray &name : names)
        g_variant_builder_add_value(&builder, reference(name));
    g_variant_builder_close(&builder);
    return g_variant_builder_end(&builder);
}

GDBusMessage *FakeProgram::filter(GDBusConnection * /*connection*/, GDBusMessage *message, gboolean incoming,
                                  gpointer self)
{
    if (incoming == FALSE || g_dbus_message_get_message_type(message) != G_DBUS_MESSAGE_TYPE_METHOD_CALL)
        return message;
    static_cast<FakeProgram *>(self)->respond(message);
    g_object_unref(message);
    return nullptr;
}

void FakeProgram::respond(GDBusMessage *message)
{
    const QByteArray interface = g_dbus_message_get_interface(message);
    const QByteArray name = QByteArray(g_dbus_message_get_path(message)).mid(qsizetype(qstrlen(prefix)));
    QByteArray method = g_dbus_message_get_member(message);
    GVariant *const arguments = g_dbus_message_get_body(message);
    if (interface == "org.freedesktop.DBus.Properties" && method == "Get") {
        const GlibHandle<GVariant> property(g_variant_get_child_value(arguments, 1));
        method = g_variant_get_string(property.get(), nullptr);
    }
    const QMutexLocker lock(&m_mutex);
    m_interfaces.append(QString::fromUtf8(interface));
    m_questions.append(name + '.' + method);
    const auto special = m_answers.find(name + '.' + method);
    std::optional<GVariant *> body;
    if (special != m_answers.end())
        body = special->second();
    else if (m_objects.contains(name))
        body = ownAnswer(m_objects.value(name), interface, method, arguments);
    if (body && !*body)
        return;
    GDBusMessage *const reply =
        body ? g_dbus_message_new_method_reply(message)
             : g_dbus_message_new_method_error_literal(message, "org.freedesktop.DBus.Error.UnknownMethod", "no");
    if (body)
        g_dbus_message_set_body(reply, *body);
    g_dbus_connection_send_message(m_bus.get(), reply, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr, nullptr);
    g_object_unref(reply);
}

std::optional<GVariant *> FakeProgram::ownAnswer(const Object &object, const QByteArray &interface,
                                                 const QByteArray &method, GVariant *arguments) const
{
    if (method == "GetChildren")
        return references(object.children);
    if (method == "GetChildAtIndex") {
        const GlibHandle<GVariant> index(g_variant_get_child_value(arguments, 0));
        return g_variant_new("(@(so))", reference(object.children.value(g_variant_get_int32(index.get()))));
    }
    if (method == "GetRole")
        return g_variant_new("(u)", object.role);
    if (method == "GetState")
        return stateWords(object.states);
    if (method == "GetAttributes")
        return textMap(interface.endsWith("Document") ? object.documentAttributes : object.attributes);
    GVariant *const value = property(object, method);
    return value ? std::optional(g_variant_new("(v)", value)) : std::nullopt;
}

GVariant *FakeProgram::property(const Object &object, const QByteArray &name)
{
    if (name == "Name")
        return g_variant_new_string(object.name.toUtf8().constData());
    if (name == "Description")
        return g_variant_new_string(object.description.toUtf8().constData());
    if (name == "ChildCount")
        return g_variant_new_int32(int(object.children.size()));
    return nullptr;
}

} // namespace ostrel
