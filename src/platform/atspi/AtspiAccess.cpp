#include "platform/atspi/AtspiAccess.h"

#include "platform/sessionbus/BusCall.h"
#include "platform/sessionbus/BusNames.h"
#include "platform/sessionbus/BusSocket.h"
#include "platform/sessionbus/SessionBusAddress.h"

namespace ostrel {

namespace {

using Message = GlibHandle<GDBusMessage>;

constexpr qint64 patienceMs = 250;
constexpr const char *service = "org.a11y.Bus";
constexpr const char *servicePath = "/org/a11y/bus";
constexpr const char *status = "org.a11y.Status";
constexpr const char *property = "IsEnabled";

constexpr auto changes = {
    "type='signal',sender='org.a11y.Bus',path='/org/a11y/bus',interface='org.freedesktop.DBus.Properties',"
    "member='PropertiesChanged'",
    "type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged',arg0='org.a11y.Bus'",
};

bool isSignal(const Message &message)
{
    return g_dbus_message_get_message_type(message.get()) == G_DBUS_MESSAGE_TYPE_SIGNAL;
}

/// @param arguments taken over
Message propertyCall(const char *method, GVariant *arguments)
{
    Message message(g_dbus_message_new_method_call(service, servicePath, BusNames::properties, method));
    g_dbus_message_set_body(message.get(), arguments);
    return message;
}

std::optional<bool> boxedFlag(const Message &answer)
{
    GVariant *const body = answer ? g_dbus_message_get_body(answer.get()) : nullptr;
    if (body == nullptr || g_variant_is_of_type(body, G_VARIANT_TYPE("(v)")) == FALSE)
        return std::nullopt;
    const GlibHandle<GVariant> box(g_variant_get_child_value(body, 0));
    return flagIn(GlibHandle<GVariant>(g_variant_get_variant(box.get())).get());
}

} // namespace

/// What is known of the switch, and the way to it.
class AtspiAccess::Switch
{
public:
    std::optional<bool> isOn()
    {
        if (!connect())
            return std::nullopt;
        while (const auto news = m_bus->next(QDeadlineTimer(0)))
            hear(news);
        if (!m_isOn) {
            const auto answer = call(propertyCall("Get", g_variant_new("(ss)", status, property)));
            m_isOn = boxedFlag(answer);
        }
        return m_isOn;
    }

    void turnOn()
    {
        if (!connect())
            return;
        call(propertyCall("Set", g_variant_new("(ssv)", status, property, g_variant_new_boolean(TRUE))));
        m_isOn.reset();
    }

private:
    bool connect()
    {
        if (m_bus && !m_bus->isLost())
            return true;
        m_isOn.reset();
        const QByteArray address = sessionBusAddress().toUtf8();
        m_bus = address.isEmpty() ? nullptr : BusSocket::connect(address, QDeadlineTimer(patienceMs));
        if (!m_bus)
            return false;
        for (const char *change : changes) {
            const Message follow(
                g_dbus_message_new_method_call(BusNames::daemon, BusNames::daemonPath, BusNames::daemon, "AddMatch"));
            g_dbus_message_set_flags(follow.get(), G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED);
            g_dbus_message_set_body(follow.get(), g_variant_new("(s)", change));
            m_bus->post(BusSocket::encoded(follow.get()));
        }
        return true;
    }

    /// What exactly a signal tells is not looked at: the switch itself is asked.
    void hear(const Message &message)
    {
        if (isSignal(message))
            m_isOn.reset();
    }

    /// @return null without an answer
    Message call(const Message &message)
    {
        const QDeadlineTimer deadline(patienceMs);
        const quint32 number = m_bus->post(BusSocket::encoded(message.get()));
        while (auto answer = m_bus->next(deadline)) {
            if (BusSocket::callAnsweredBy(answer.get()) == number)
                return answer;
            hear(answer);
        }
        return nullptr;
    }

    std::unique_ptr<BusSocket> m_bus;
    std::optional<bool> m_isOn; ///< absent while it has to be asked
};

AtspiAccess::AtspiAccess() : m_switch(std::make_unique<Switch>()) {}

AtspiAccess::~AtspiAccess() = default;

bool AtspiAccess::isTrusted()
{
    return m_switch->isOn().value_or(false);
}

bool AtspiAccess::request()
{
    m_switch->turnOn();
    // What counts is what it says now: a locked-down desktop answers the call and leaves the switch as it was.
    return isTrusted();
}

} // namespace ostrel
