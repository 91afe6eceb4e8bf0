#include "platform/portal/ShellMonitors.h"

#include <algorithm>

namespace ostrel {

namespace {

constexpr std::chrono::milliseconds shellPatience{1'000};
constexpr const char *answerType = "(ua((ssss)a(siiddada{sv})a{sv})a(iiduba(ssss)a{sv})a{sv})";

GlibHandle<GVariant> childOf(const GlibHandle<GVariant> &parent, gsize index)
{
    return GlibHandle<GVariant>(g_variant_get_child_value(parent.get(), index));
}

/// Connector, vendor, product, serial number.
QStringList namesIn(const GlibHandle<GVariant> &monitor)
{
    QStringList names;
    for (gsize i = 0; i < g_variant_n_children(monitor.get()); ++i)
        names.append(QString::fromUtf8(g_variant_get_string(childOf(monitor, i).get(), nullptr)));
    return names;
}

} // namespace

std::optional<ShellMonitors> readShellMonitors(const BusLine &line)
{
    GlibHandle<GError> error;
    BusLine shortLine = line;
    shortLine.patience = std::min(line.patience, shellPatience);
    const auto answer =
        callBus(shortLine, {ShellNames::service, ShellNames::path, ShellNames::service, ShellNames::read}, nullptr,
                answerType, error);
    return answer ? shellMonitorsIn(answer.get()) : std::nullopt;
}

std::optional<ShellMonitors> shellMonitorsIn(GVariant *answer)
{
    if (answer == nullptr || g_variant_is_of_type(answer, G_VARIANT_TYPE(answerType)) == FALSE)
        return std::nullopt;
    ShellMonitors monitors;
    const GlibHandle<GVariant> connected(g_variant_get_child_value(answer, 1));
    for (gsize i = 0; i < g_variant_n_children(connected.get()); ++i)
        monitors.connected.insert(namesIn(childOf(childOf(connected, i), 0)).join(u' '));
    // Parts of the desktop, each of which several monitors may show.
    const GlibHandle<GVariant> parts(g_variant_get_child_value(answer, 2));
    for (gsize i = 0; i < g_variant_n_children(parts.get()); ++i) {
        const auto showing = childOf(childOf(parts, i), 5);
        for (gsize k = 0; k < g_variant_n_children(showing.get()); ++k)
            monitors.shown.append(namesIn(childOf(showing, k)).sliced(1).join(u' '));
    }
    monitors.shown.sort();
    return monitors;
}

} // namespace ostrel
