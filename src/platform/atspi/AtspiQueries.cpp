#include "platform/atspi/AtspiQueries.h"

#include "platform/atspi/AtspiRoles.h"

#include <algorithm>

namespace ostrel {

namespace {

using Call = AtspiBus::Call;

constexpr const char *accessible = "org.a11y.atspi.Accessible";

/// Longer ones are cut: nobody reads them to their end.
constexpr qsizetype longestText = 4096;
constexpr gsize mostAttributes = 100;

Call call(const AtspiReference &object, const char *method, const char *replyType)
{
    return {.name = object.name,
            .path = object.path,
            .interface = accessible,
            .method = method,
            .arguments = {},
            .replyType = replyType};
}

/// What asks for a property.
GlibHandle<GVariant> propertyNamed(const char *name)
{
    return AtspiBus::arguments(g_variant_new("(ss)", accessible, name));
}

Call property(const AtspiReference &object, const GlibHandle<GVariant> &arguments)
{
    return {.name = object.name,
            .path = object.path,
            .interface = "org.freedesktop.DBus.Properties",
            .method = "Get",
            .arguments = AtspiBus::sharedArguments(arguments),
            .replyType = "(v)"};
}

Call nameOf(const AtspiReference &object)
{
    static const auto name = propertyNamed("Name");
    return property(object, name);
}

Call descriptionOf(const AtspiReference &object)
{
    static const auto description = propertyNamed("Description");
    return property(object, description);
}

Call childCountOf(const AtspiReference &object)
{
    static const auto childCount = propertyNamed("ChildCount");
    return property(object, childCount);
}

GlibHandle<GVariant> child(GVariant *container, gsize index)
{
    return GlibHandle<GVariant>(g_variant_get_child_value(container, index));
}

/// @param text of a type that holds one
QString textIn(GVariant *text)
{
    gsize length = 0;
    const char *const utf8 = g_variant_get_string(text, &length);
    // A character takes four bytes at most, so that a character cut in halves is beyond what is kept.
    QString kept = QString::fromUtf8(utf8, std::min(qsizetype(length), 4 * longestText)).left(longestText);
    if (!kept.isEmpty() && kept.back().isHighSurrogate())
        kept.chop(1);
    return kept;
}

/// What is in a property's box. @return null when it is of another type
GlibHandle<GVariant> unboxed(GVariant *answer, const char *type)
{
    if (!answer)
        return nullptr;
    GlibHandle<GVariant> value(g_variant_get_variant(child(answer, 0).get()));
    return g_variant_is_of_type(value.get(), G_VARIANT_TYPE(type)) != FALSE ? std::move(value) : nullptr;
}

QString textProperty(const AtspiBus::Reply &reply)
{
    const auto value = unboxed(reply.value.get(), "s");
    return value ? textIn(value.get()) : QString();
}

std::optional<quint32> number(const AtspiBus::Reply &reply)
{
    return reply.value ? std::optional(g_variant_get_uint32(child(reply.value.get(), 0).get())) : std::nullopt;
}

AtspiStates statesIn(const AtspiBus::Reply &reply)
{
    if (!reply.value)
        return {};
    const auto words = child(reply.value.get(), 0);
    quint64 bits = 0;
    for (gsize i = 0; i < std::min<gsize>(2, g_variant_n_children(words.get())); ++i)
        bits |= quint64(g_variant_get_uint32(child(words.get(), i).get())) << (32 * i);
    return AtspiStates(bits);
}

AtspiAttributes attributesIn(const AtspiBus::Reply &reply)
{
    AtspiAttributes attributes;
    if (!reply.value)
        return attributes;
    const auto map = child(reply.value.get(), 0);
    for (gsize i = 0; i < std::min(mostAttributes, g_variant_n_children(map.get())); ++i) {
        const auto entry = child(map.get(), i);
        attributes.insert(textIn(child(entry.get(), 0).get()), textIn(child(entry.get(), 1).get()));
    }
    return attributes;
}

std::optional<AtspiReference> referenceIn(GVariant *pair)
{
    AtspiReference reference{.name = g_variant_get_string(child(pair, 0).get(), nullptr),
                             .path = g_variant_get_string(child(pair, 1).get(), nullptr)};
    const bool leadsNowhere = reference.path == "/org/a11y/atspi/null";
    // Only a running program has a unique name; nothing else may be asked on a program's word.
    if (leadsNowhere || g_dbus_is_unique_name(reference.name.constData()) == FALSE)
        return std::nullopt;
    return reference;
}

} // namespace

QList<AtspiReference> AtspiQueries::referencesIn(GVariant *answer, qsizetype maximum)
{
    const auto list = child(answer, 0);
    QList<AtspiReference> references;
    const auto count = std::min(maximum, qsizetype(g_variant_n_children(list.get())));
    for (qsizetype i = 0; i < count; ++i) {
        if (const auto reference = referenceIn(child(list.get(), gsize(i)).get()))
            references.append(*reference);
    }
    return references;
}

AtspiBus::Outcome AtspiQueries::readChildren(const AtspiReference &object, QList<AtspiReference> &children,
                                             qsizetype maximum)
{
    const auto reply = m_bus.ask(call(object, "GetChildren", "(a(so))"));
    children = reply.value ? referencesIn(reply.value.get(), maximum) : QList<AtspiReference>();
    return reply.outcome;
}

QList<QList<AtspiReference>> AtspiQueries::childrenOfEach(const QList<AtspiReference> &objects, qsizetype maximum)
{
    std::vector<Call> calls;
    for (const AtspiReference &object : objects)
        calls.push_back(call(object, "GetChildren", "(a(so))"));
    QList<QList<AtspiReference>> children;
    for (const auto &reply : m_bus.ask(std::move(calls)))
        children.append(reply.value ? referencesIn(reply.value.get(), maximum) : QList<AtspiReference>());
    return children;
}

QList<AtspiReference> AtspiQueries::firstChildren(const AtspiReference &object, qsizetype maximum)
{
    const auto answer = m_bus.ask(childCountOf(object));
    const auto count = unboxed(answer.value.get(), "i");
    if (!count || g_variant_get_int32(count.get()) <= 0)
        return {};
    QList<AtspiReference> children;
    if (g_variant_get_int32(count.get()) <= maximum) {
        readChildren(object, children, maximum);
        return children;
    }
    std::vector<Call> calls;
    for (qsizetype i = 0; i < maximum; ++i) {
        calls.push_back(call(object, "GetChildAtIndex", "((so))"));
        calls.back().arguments = AtspiBus::arguments(g_variant_new("(i)", int(i)));
    }
    for (const auto &reply : m_bus.ask(std::move(calls))) {
        const auto reference = reply.value ? referenceIn(child(reply.value.get(), 0).get()) : std::nullopt;
        if (reference)
            children.append(*reference);
    }
    return children;
}

QList<std::optional<quint32>> AtspiQueries::roles(const QList<AtspiReference> &objects)
{
    std::vector<Call> calls;
    for (const AtspiReference &object : objects)
        calls.push_back(call(object, "GetRole", "(u)"));
    QList<std::optional<quint32>> roles;
    for (const auto &reply : m_bus.ask(std::move(calls)))
        roles.append(number(reply));
    return roles;
}

QList<AtspiStates> AtspiQueries::states(const QList<AtspiReference> &objects)
{
    std::vector<Call> calls;
    for (const AtspiReference &object : objects)
        calls.push_back(call(object, "GetState", "(au)"));
    QList<AtspiStates> states;
    for (const auto &reply : m_bus.ask(std::move(calls)))
        states.append(statesIn(reply));
    return states;
}

QList<QString> AtspiQueries::names(const QList<AtspiReference> &objects)
{
    std::vector<Call> calls;
    for (const AtspiReference &object : objects)
        calls.push_back(nameOf(object));
    QList<QString> names;
    for (const auto &reply : m_bus.ask(std::move(calls)))
        names.append(textProperty(reply));
    return names;
}

QString AtspiQueries::description(const AtspiReference &object)
{
    return textProperty(m_bus.ask(descriptionOf(object)));
}

AtspiAttributes AtspiQueries::documentAttributes(const AtspiReference &object)
{
    Call request = call(object, "GetAttributes", "(a{ss})");
    request.interface = "org.a11y.atspi.Document";
    return attributesIn(m_bus.ask(std::move(request)));
}

AtspiControl AtspiQueries::control(const AtspiReference &object)
{
    std::vector<Call> calls;
    calls.push_back(call(object, "GetRole", "(u)"));
    calls.push_back(nameOf(object));
    const auto replies = m_bus.ask(std::move(calls));
    return {.role = number(replies[0]), .name = textProperty(replies[1])};
}

AtspiDetails AtspiQueries::details(const AtspiReference &object)
{
    std::vector<Call> calls;
    calls.push_back(call(object, "GetState", "(au)"));
    calls.push_back(call(object, "GetAttributes", "(a{ss})"));
    const auto replies = m_bus.ask(std::move(calls));
    return {.states = statesIn(replies[0]), .attributes = attributesIn(replies[1])};
}

} // namespace ostrel
