#include "platform/sway/SwayTree.h"

#include "base/DisplayRules.h"
#include "platform/sway/SwayNode.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QList>

namespace ostrel {

namespace {

using namespace Qt::Literals::StringLiterals;

/// Where the main display's corner lies: what desktop coordinates count from.
QPoint originOf(const QJsonObject &root)
{
    QList<QPoint> corners;
    for (const QJsonValue output : root["nodes"_L1].toArray()) {
        const bool isReal = output["type"_L1] == "output"_L1 && !output["name"_L1].toString().startsWith("__"_L1);
        if (const auto place = SwayNode::rectangle(output["rect"_L1]); isReal && place && !place->isEmpty())
            corners.append(place->topLeft());
    }
    const auto main = mainDisplayIndex(corners);
    return main ? corners[*main] : QPoint();
}

/// The node with the focus, wherever it stands.
std::optional<QJsonObject> focusedNode(const QJsonObject &root)
{
    QList<QJsonObject> waiting{root};
    while (!waiting.isEmpty()) {
        QJsonObject node = waiting.takeLast();
        if (node["focused"_L1].toBool())
            return node;
        for (const auto &children : {node["nodes"_L1].toArray(), node["floating_nodes"_L1].toArray()}) {
            for (const QJsonValue child : children)
                waiting.append(child.toObject());
        }
    }
    return std::nullopt;
}

/// A window's own rectangle leaves out the title bar above it.
std::optional<QRectF> frameOf(const QJsonObject &node, QPoint origin)
{
    auto frame = SwayNode::rectangle(node["rect"_L1]);
    if (!frame || frame->isEmpty())
        return std::nullopt;
    if (const auto titleBar = SwayNode::rectangle(node["deco_rect"_L1]); titleBar && !titleBar->isEmpty())
        frame->setTop(frame->top() - titleBar->height());
    return QRectF(frame->translated(-origin));
}

} // namespace

std::optional<SwayFocus> focusIn(const QByteArray &json)
{
    const QJsonObject root = QJsonDocument::fromJson(json).object();
    const auto node = focusedNode(root);
    if (!node)
        return std::nullopt;
    QString windowClass = (*node)["app_id"_L1].toString();
    if (windowClass.isEmpty())
        windowClass = (*node)["window_properties"_L1]["class"_L1].toString();
    const qint32 pid = SwayNode::pid(*node);
    // Workspaces and groups of windows can have the focus too; they belong to no process and are of no class.
    if (windowClass.isEmpty() && pid == 0)
        return std::nullopt;
    return SwayFocus{.windowClass = windowClass,
                     .title = (*node)["name"_L1].toString(),
                     .pid = pid,
                     .frame = frameOf(*node, originOf(root))};
}

} // namespace ostrel
