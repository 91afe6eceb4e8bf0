#include "platform/atspi/AtspiFocusWatch.h"

#include "platform/sessionbus/BusNames.h"

namespace ostrel {

namespace {

QByteArray ruleFor(const AtspiReference &object)
{
    return "type='signal',sender='" + object.name + "',path='" + object.path +
           "',interface='org.a11y.atspi.Event.Object',member='StateChanged',arg0='focused'";
}

} // namespace

void AtspiFocusWatch::watch(const AtspiReference &object)
{
    if (isWatching(object))
        return;
    forgetOtherBus();
    if (m_object)
        tellBus("RemoveMatch", *m_object);
    m_object = object;
    tellBus("AddMatch", object);
    if (!m_askedForEvents)
        askForEvents();
}

bool AtspiFocusWatch::isWatching(const AtspiReference &object) const
{
    return m_generation == m_bus.generation() && m_object == object;
}

void AtspiFocusWatch::end()
{
    forgetOtherBus();
    if (!m_object)
        return;
    tellBus("RemoveMatch", *m_object);
    m_object.reset();
    m_bus.flush();
}

void AtspiFocusWatch::forgetOtherBus()
{
    if (m_generation == m_bus.generation())
        return;
    m_generation = m_bus.generation();
    m_object.reset();
    m_askedForEvents = false;
}

/// Programs send what somebody has registered for; which of it comes here is the bus's matter.
void AtspiFocusWatch::askForEvents()
{
    m_askedForEvents = true;
    m_bus.tell(
        {.name = "org.a11y.atspi.Registry",
         .path = "/org/a11y/atspi/registry",
         .interface = "org.a11y.atspi.Registry",
         .method = "RegisterEvent",
         .arguments = AtspiBus::arguments(g_variant_new("(sass)", "object:state-changed:focused", nullptr, ""))});
}

void AtspiFocusWatch::tellBus(const char *method, const AtspiReference &object)
{
    m_bus.tell({.name = BusNames::daemon,
                .path = BusNames::daemonPath,
                .interface = BusNames::daemon,
                .method = method,
                .arguments = AtspiBus::arguments(g_variant_new("(s)", ruleFor(object).constData()))});
}

} // namespace ostrel
