#include "platform/x11/base/X11Monitors.h"

#include "base/DisplayRules.h"
#include "platform/x11/base/X11Connection.h"

#include <algorithm>
#include <tuple>
#include <vector>

namespace ostrel {

namespace {

bool hasMonitors(X11Connection &connection)
{
    const auto *extension = xcb_get_extension_data(connection.get(), &xcb_randr_id);
    if (!extension || !extension->present)
        return false;
    // The server answers a client by the version that it announces; monitors came with 1.5.
    const auto version =
        connection.reply<xcb_randr_query_version_reply>(xcb_randr_query_version(connection.get(), 1, 5));
    return version && std::tuple(version->major_version, version->minor_version) >= std::tuple(1u, 5u);
}

xcb_randr_get_monitors_cookie_t requestMonitors(X11Connection &connection)
{
    constexpr uint8_t activeOnly = 1;
    return xcb_randr_get_monitors(connection.get(), connection.root(), activeOnly);
}

/// Geometry and mark of each monitor with a size; the names are still missing.
std::vector<std::pair<X11Monitor, const xcb_randr_monitor_info_t *>>
monitorsOf(const xcb_randr_get_monitors_reply_t &answer)
{
    std::vector<std::pair<X11Monitor, const xcb_randr_monitor_info_t *>> monitors;
    for (auto it = xcb_randr_get_monitors_monitors_iterator(&answer); it.rem > 0; xcb_randr_monitor_info_next(&it)) {
        const xcb_randr_monitor_info_t &info = *it.data;
        if (info.width == 0 || info.height == 0)
            continue;
        monitors.emplace_back(X11Monitor{.name = {},
                                         .pixels = QRect(info.x, info.y, info.width, info.height),
                                         .primary = info.primary != 0},
                              &info);
    }
    return monitors;
}

/// Names a monitor by its first connector, for that is what stays the same when monitors are arranged anew.
class NameRequest
{
public:
    NameRequest(X11Connection &connection, const xcb_randr_monitor_info_t &info, xcb_timestamp_t timestamp)
        : m_connection(connection), m_monitor(xcb_get_atom_name(connection.get(), info.name))
    {
        if (xcb_randr_monitor_info_outputs_length(&info) > 0)
            m_output = xcb_randr_get_output_info(connection.get(), *xcb_randr_monitor_info_outputs(&info), timestamp);
    }

    QString collect()
    {
        const auto monitor = m_connection.reply<xcb_get_atom_name_reply>(m_monitor);
        const auto output = m_output ? m_connection.reply<xcb_randr_get_output_info_reply>(*m_output) : nullptr;
        if (output && output->name_len > 0)
            return QString::fromUtf8(reinterpret_cast<const char *>(xcb_randr_get_output_info_name(output.get())),
                                     output->name_len);
        return monitor ? QString::fromUtf8(xcb_get_atom_name_name(monitor.get()), monitor->name_len) : QString();
    }

private:
    X11Connection &m_connection;
    xcb_get_atom_name_cookie_t m_monitor;
    std::optional<xcb_randr_get_output_info_cookie_t> m_output;
};

QList<X11Monitor> wholeScreen(X11Connection &connection)
{
    // The sizes in the connection's set-up are those of the moment it was opened.
    const auto root = connection.reply<xcb_get_geometry_reply>(xcb_get_geometry(connection.get(), connection.root()));
    if (!root)
        return {};
    return {X11Monitor{
        .name = QStringLiteral("screen"), .pixels = QRect(0, 0, root->width, root->height), .primary = true}};
}

QList<X11Monitor> namedMonitors(X11Connection &connection, const xcb_randr_get_monitors_reply_t &answer)
{
    const auto found = monitorsOf(answer);
    std::vector<NameRequest> names;
    names.reserve(found.size());
    for (const auto &[monitor, info] : found)
        names.emplace_back(connection, *info, answer.timestamp);
    QList<X11Monitor> monitors;
    for (std::size_t i = 0; i < found.size(); ++i) {
        monitors.append(found[i].first);
        monitors.last().name = names[i].collect();
    }
    return monitors;
}

} // namespace

QPoint X11MonitorLayout::origin() const
{
    return mainIndex ? monitors[*mainIndex].pixels.topLeft() : QPoint();
}

QRectF X11MonitorLayout::toDesktop(const QRect &screenPixels) const
{
    return QRectF(screenPixels.translated(-origin()));
}

Result<X11MonitorLayout> readMonitors(X11Connection &connection)
{
    X11MonitorLayout layout;
    if (hasMonitors(connection)) {
        if (const auto answer = connection.reply<xcb_randr_get_monitors_reply>(requestMonitors(connection)))
            layout.monitors = namedMonitors(connection, *answer);
    } else {
        layout.monitors = wholeScreen(connection);
    }
    if (connection.isBroken())
        return std::unexpected(connection.brokenError());
    assignDisplayIds(layout.monitors);
    layout.mainIndex = mainMonitorIndex(layout.monitors);
    return layout;
}

X11OriginRequest::X11OriginRequest(X11Connection &connection) : m_connection(connection)
{
    // No version handshake: to a server that has RandR but not its monitors the request is an error, as good as none.
    const auto *extension = xcb_get_extension_data(connection.get(), &xcb_randr_id);
    if (extension && extension->present)
        m_cookie = requestMonitors(connection);
}

QPoint X11OriginRequest::collect()
{
    const auto answer = m_cookie ? m_connection.reply<xcb_randr_get_monitors_reply>(*m_cookie) : nullptr;
    if (!answer)
        return {};
    X11MonitorLayout layout;
    for (const auto &[monitor, info] : monitorsOf(*answer))
        layout.monitors.append(monitor);
    layout.mainIndex = mainMonitorIndex(layout.monitors);
    return layout.origin();
}

void assignDisplayIds(QList<X11Monitor> &monitors)
{
    QStringList names;
    for (const X11Monitor &monitor : monitors)
        names.append(monitor.name);
    const QList<quint32> identifiers = displayIdentifiers(names);
    for (qsizetype i = 0; i < monitors.size(); ++i)
        monitors[i].displayId = identifiers[i];
}

std::optional<qsizetype> mainMonitorIndex(const QList<X11Monitor> &monitors)
{
    if (monitors.isEmpty())
        return std::nullopt;
    // Smaller is better: primary, then the corner of the X screen, then reading order.
    const auto rank = [](const X11Monitor &monitor) {
        const QPoint corner = monitor.pixels.topLeft();
        return std::tuple(!monitor.primary, corner != QPoint(), corner.y(), corner.x());
    };
    const auto best = std::min_element(monitors.begin(), monitors.end(),
                                       [&rank](const auto &a, const auto &b) { return rank(a) < rank(b); });
    return best - monitors.begin();
}

} // namespace ostrel
