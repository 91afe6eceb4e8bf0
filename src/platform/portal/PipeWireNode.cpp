#include "platform/portal/PipeWireNode.h"

#include "platform/portal/PictureFormats.h"

#include <limits>

namespace ostrel {

PipeWireNode::PipeWireNode(pw_registry *registry, quint32 node)
    : m_node(static_cast<pw_node *>(pw_registry_bind(registry, node, PW_TYPE_INTERFACE_Node, PW_VERSION_NODE, 0)))
{
    static const pw_node_events events = [] {
        pw_node_events table{};
        table.version = PW_VERSION_NODE_EVENTS;
        table.param = [](void *self, int /*sequence*/, uint32_t id, uint32_t /*index*/, uint32_t /*next*/,
                         const spa_pod *param) {
            if (id == SPA_PARAM_EnumFormat || id == SPA_PARAM_Format)
                static_cast<PipeWireNode *>(self)->takeFormat(param);
        };
        return table;
    }();
    if (m_node == nullptr)
        return;
    pw_node_add_listener(m_node, &m_listener, &events, this);
    constexpr uint32_t all = std::numeric_limits<uint32_t>::max();
    pw_node_enum_params(m_node, 0, SPA_PARAM_EnumFormat, 0, all, nullptr);
}

PipeWireNode::~PipeWireNode()
{
    if (m_node == nullptr)
        return;
    spa_hook_remove(&m_listener);
    pw_proxy_destroy(reinterpret_cast<pw_proxy *>(m_node));
}

void PipeWireNode::takeFormat(const spa_pod *format)
{
    if (const auto size = PictureFormats::offeredSize(format); size && !m_size)
        m_size = size;
}

} // namespace ostrel
