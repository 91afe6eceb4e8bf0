#include "platform/atspi/AtspiApplications.h"

#include <algorithm>

namespace ostrel {

namespace {

constexpr const char *registryName = "org.a11y.atspi.Registry";
constexpr qsizetype mostApplications = 256;

} // namespace

QList<QByteArray> AtspiApplications::namesOf(qint32 processIdentifier)
{
    forgetOtherBus();
    QList<QByteArray> names = known(processIdentifier);
    if (!names.isEmpty())
        return names;
    refresh();
    return known(processIdentifier);
}

const QHash<QByteArray, qint32> &AtspiApplications::all()
{
    forgetOtherBus();
    refresh();
    return m_processes;
}

void AtspiApplications::forgetOtherBus()
{
    if (m_generation == m_bus.generation())
        return;
    m_generation = m_bus.generation();
    m_processes.clear();
    m_askedForWindowStates = false;
}

void AtspiApplications::forget(qint32 processIdentifier)
{
    m_processes.removeIf([=](const auto &known) { return known.value() == processIdentifier; });
}

QList<QByteArray> AtspiApplications::known(qint32 processIdentifier) const
{
    QList<QByteArray> names = m_processes.keys(processIdentifier);
    std::ranges::sort(names);
    return names;
}

void AtspiApplications::refresh()
{
    QList<AtspiReference> listed;
    const AtspiReference root{.name = registryName, .path = "/org/a11y/atspi/accessible/root"};
    if (m_queries.readChildren(root, listed, mostApplications) != AtspiBus::Outcome::Answered)
        return;
    QHash<QByteArray, qint32> stillThere;
    QList<QByteArray> unknown;
    for (const AtspiReference &application : std::as_const(listed)) {
        const auto process = m_processes.constFind(application.name);
        if (process != m_processes.cend())
            stillThere.insert(application.name, *process);
        else if (!unknown.contains(application.name))
            unknown.append(application.name);
    }
    m_processes = std::move(stillThere);
    readProcesses(unknown);
    if (!m_askedForWindowStates)
        askForWindowStates();
}

void AtspiApplications::readProcesses(const QList<QByteArray> &names)
{
    std::vector<AtspiBus::Call> calls;
    for (const QByteArray &name : names)
        calls.push_back({.name = "org.freedesktop.DBus",
                         .path = "/org/freedesktop/DBus",
                         .interface = "org.freedesktop.DBus",
                         .method = "GetConnectionUnixProcessID",
                         .arguments = AtspiBus::arguments(g_variant_new("(s)", name.constData())),
                         .replyType = "(u)"});
    const auto replies = m_bus.ask(std::move(calls));
    for (qsizetype i = 0; i < names.size(); ++i) {
        if (const auto &reply = replies[std::size_t(i)]; reply.value) {
            const GlibHandle<GVariant> process(g_variant_get_child_value(reply.value.get(), 0));
            m_processes.insert(names[i], qint32(g_variant_get_uint32(process.get())));
        }
    }
}

/// Chromium tells which of its windows is the active one only while somebody listens for that. So the registry is told
/// that somebody does; the events themselves are not subscribed to and never come here.
void AtspiApplications::askForWindowStates()
{
    m_askedForWindowStates = true;
    m_bus.ask({.name = registryName,
               .path = "/org/a11y/atspi/registry",
               .interface = "org.a11y.atspi.Registry",
               .method = "RegisterEvent",
               .arguments = AtspiBus::arguments(g_variant_new("(sass)", "window:activate", nullptr, "")),
               .replyType = "()"});
}

} // namespace ostrel
