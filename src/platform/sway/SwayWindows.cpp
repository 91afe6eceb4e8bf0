#include "platform/sway/SwayWindows.h"

#include "platform/sway/SwayNode.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <initializer_list>

namespace ostrel {

namespace {

using namespace Qt::Literals::StringLiterals;

QList<QJsonObject> childrenOf(const QJsonObject &node)
{
    QList<QJsonObject> children;
    for (const auto &list : {node["nodes"_L1].toArray(), node["floating_nodes"_L1].toArray()}) {
        for (const QJsonValue child : list)
            children.append(child.toObject());
    }
    return children;
}

bool isGroup(const QJsonObject &node)
{
    return !node["nodes"_L1].toArray().isEmpty() || !node["floating_nodes"_L1].toArray().isEmpty();
}

/// Only windows are said to be visible or not.
bool isWindow(const QJsonObject &node)
{
    return node.contains("visible"_L1) && !isGroup(node);
}

/// Whether a window in here is seen and leaves room for the titles above it. A reader of JSON goes down a thousand
/// steps at the most.
bool showsTitles(const QJsonObject &node) // NOLINT(misc-no-recursion)
{
    if (isWindow(node))
        return node["visible"_L1].toBool() && node["fullscreen_mode"_L1].toInt() == 0;
    return std::ranges::any_of(
        childrenOf(node), [](const QJsonObject &child) { return showsTitles(child); }); // NOLINT(misc-no-recursion)
}

QString windowClassOf(const QJsonObject &node)
{
    QString appId = node["app_id"_L1].toString();
    if (!appId.isEmpty())
        return appId;
    const QJsonValue properties = node["window_properties"_L1];
    return QStringList{properties["instance"_L1].toString(), properties["class"_L1].toString()}.join(u' ').trimmed();
}

class Reader
{
public:
    /// @param parent null for the root
    /// @return whether everything that is shown has a place
    bool read(const QJsonObject &node, const QJsonObject &parent) // NOLINT(misc-no-recursion)
    {
        if (isWindow(node) && !append(node, parent))
            return false;
        return std::ranges::all_of(childrenOf(node), [&](const QJsonObject &child) { // NOLINT(misc-no-recursion)
            return read(child, node);
        });
    }

    QList<SwayWindow> takeWindows() { return std::move(m_windows); }

private:
    bool append(const QJsonObject &node, const QJsonObject &parent)
    {
        SwayWindow window{.windowClass = windowClassOf(node),
                          .title = node["name"_L1].toString(),
                          .pid = SwayNode::pid(node),
                          .places = {}};
        const bool isVisible = node["visible"_L1].toBool();
        const auto frame = SwayNode::rectangle(node["rect"_L1]);
        const auto title = SwayNode::rectangle(node["deco_rect"_L1]);
        if (!frame || !title || !SwayNode::rectangle(parent["rect"_L1]))
            return false;
        if (isVisible)
            window.places.append(*frame);
        if (!title->isEmpty() && (isVisible || showsTitles(parent)))
            window.places.append(placeOfTitle(*title, *frame, node, parent));
        window.places.removeIf([](const QRect &place) { return place.isEmpty(); });
        if (!window.places.isEmpty())
            m_windows.append(window);
        return true;
    }

    /// Where a title is, told from its group's corner, is of no use: the corner that is told of a group leaves out the
    /// titles above the group. But a window's own rectangle begins below all the titles of its group.
    static QRect placeOfTitle(const QRect &title, const QRect &frame, const QJsonObject &node,
                              const QJsonObject &parent)
    {
        const bool isFloating = node["type"_L1] == "floating_con"_L1;
        const bool isStacked = !isFloating && parent["layout"_L1] == "stacked"_L1;
        const auto rows = isStacked ? int(parent["nodes"_L1].toArray().size()) : 1;
        const int left = SwayNode::rectangle(parent["rect"_L1]).value_or(QRect()).left() + title.left();
        const int top = frame.top() - rows * title.height() + (isStacked ? title.top() : 0);
        // Titles share the width of their group; what is left over by rounding belongs to one of them.
        return {left - 1, top, title.width() + 2, title.height()};
    }

    QList<SwayWindow> m_windows;
};

} // namespace

std::optional<QList<SwayWindow>> windowsShownIn(const QByteArray &json)
{
    const QJsonObject root = QJsonDocument::fromJson(json).object();
    Reader reader;
    if (root["type"_L1] != "root"_L1 || !reader.read(root, root))
        return std::nullopt;
    return reader.takeWindows();
}

} // namespace ostrel
