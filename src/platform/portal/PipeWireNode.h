#pragma once

#include <QSize>

#include <pipewire/pipewire.h>

#include <optional>

namespace ostrel {

/// A producer of pictures, asked for the size of what it shows. With the lock of its `PipeWireRemote` held.
class PipeWireNode
{
public:
    /// Asks; the answer comes within a round trip.
    PipeWireNode(pw_registry *registry, quint32 node);
    PipeWireNode(const PipeWireNode &) = delete;
    PipeWireNode &operator=(const PipeWireNode &) = delete;
    ~PipeWireNode();

    /// Pixels; absent as long as nothing was told, or where it may have several sizes.
    std::optional<QSize> pictureSize() const { return m_size; }

private:
    void takeFormat(const spa_pod *format);

    pw_node *const m_node;
    spa_hook m_listener{};
    std::optional<QSize> m_size;
};

} // namespace ostrel
