#include "platform/x11/capture/X11WindowJudge.h"

#include "platform/x11/base/X11Connection.h"
#include "platform/x11/foreground/X11WindowFacts.h"

#include <algorithm>
#include <array>
#include <span>
#include <utility>

namespace ostrel {

namespace {

constexpr char stateName[] = "WM_STATE";
constexpr char titleName[] = "_NET_WM_NAME";
constexpr char pidName[] = "_NET_WM_PID";

constexpr std::uint32_t namesAndChildren = XCB_EVENT_MASK_PROPERTY_CHANGE | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
/// Inside of a program's own window there are only its own.
constexpr std::uint32_t names = XCB_EVENT_MASK_PROPERTY_CHANGE;

struct Visit {
    xcb_window_t window;
    int depth;
};

void select(X11Connection &connection, xcb_window_t window, std::uint32_t events)
{
    xcb_change_window_attributes(connection.get(), window, XCB_CW_EVENT_MASK, &events);
}

std::vector<xcb_window_t> childrenOf(X11Connection &connection, xcb_window_t window)
{
    const auto tree = connection.reply<xcb_query_tree_reply>(xcb_query_tree(connection.get(), window));
    if (!tree)
        return {};
    const std::span children(xcb_query_tree_children(tree.get()), std::size_t(tree->children_len));
    return {children.begin(), children.end()};
}

} // namespace

X11WindowJudge::X11WindowJudge(std::shared_ptr<X11Connection> connection, X11Privacy privacy)
    : m_connection(std::move(connection)), m_privacy(std::move(privacy))
{
    internWindowAtoms(*m_connection);
    m_connection->internAtoms({stateName, titleName, pidName});
}

bool X11WindowJudge::takeRules()
{
    PrivacyRules rules = m_privacy.rules();
    if (rules == m_rules)
        return false;
    m_rules = std::move(rules);
    return true;
}

bool X11WindowJudge::leaveOut(const QList<qint32> &processes)
{
    const qsizetype before = m_processes.size();
    for (const qint32 process : processes) {
        if (!m_processes.contains(process))
            m_processes.append(process);
    }
    return m_processes.size() != before;
}

X11WindowJudge::Verdict X11WindowJudge::judge(xcb_window_t window)
{
    Verdict verdict;
    std::vector<Visit> waiting{{.window = window, .depth = 0}};
    for (std::size_t next = 0; next < waiting.size() && verdict.asked.size() < mostWindows; ++next) {
        const Visit visit = waiting[next];
        select(*m_connection, visit.window, namesAndChildren);
        verdict.asked.push_back(visit.window);
        verdict.isPrivate = isPrivate(visit.window) || verdict.isPrivate;
        // What a panel has taken in from other programs is the panel's.
        if (isClient(visit.window)) {
            select(*m_connection, visit.window, names);
            continue;
        }
        if (visit.depth == deepestFrame)
            continue;
        for (const xcb_window_t child : childrenOf(*m_connection, visit.window))
            waiting.push_back({.window = child, .depth = visit.depth + 1});
    }
    return verdict;
}

bool X11WindowJudge::isRelevant(xcb_atom_t property) const
{
    const std::array deciding{xcb_atom_t(XCB_ATOM_WM_CLASS),         xcb_atom_t(XCB_ATOM_WM_NAME),
                              xcb_atom_t(XCB_ATOM_WM_TRANSIENT_FOR), xcb_atom_t(XCB_ATOM_WM_CLIENT_MACHINE),
                              m_connection->atom(titleName),         m_connection->atom(pidName),
                              m_connection->atom(stateName)};
    return std::ranges::find(deciding, property) != deciding.end();
}

/// A dialog or a menu that says for which window it is there is as private as that one.
bool X11WindowJudge::isPrivate(xcb_window_t window, int hops)
{
    const X11WindowOwner owner = readWindowOwner(*m_connection, window);
    if (owner.pid != 0 && m_processes.contains(owner.pid))
        return true;
    const WindowIdentity identity{.bundleIdentifier = owner.windowClass.isEmpty()
                                                          ? std::nullopt
                                                          : m_privacy.bundleIdentifierOf(owner.windowClass),
                                  .windowClass = owner.instanceAndClass,
                                  .title = readWindowTitle(*m_connection, window).value_or(QString())};
    if (m_rules.excludes(identity))
        return true;
    constexpr int mostHops = 4;
    const auto property = X11PropertyRequest(*m_connection, window, XCB_ATOM_WM_TRANSIENT_FOR).collect();
    const quint32 parent = property ? property->cardinal(0).value_or(XCB_WINDOW_NONE) : XCB_WINDOW_NONE;
    return parent != XCB_WINDOW_NONE && parent != m_connection->root() && hops < mostHops &&
           isPrivate(parent, hops + 1);
}

/// Window managers mark so what programs have made, and not their own frames.
bool X11WindowJudge::isClient(xcb_window_t window)
{
    return X11PropertyRequest(*m_connection, window, m_connection->atom(stateName)).collect().has_value();
}

} // namespace ostrel
