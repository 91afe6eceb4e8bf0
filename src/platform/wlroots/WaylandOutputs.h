#pragma once

#include "base/Error.h"
#include "platform/wlroots/WaylandConnection.h"
#include "platform/wlroots/WaylandHandles.h"

#include <QPoint>
#include <QRect>
#include <QSize>
#include <QString>

#include <memory>
#include <optional>
#include <vector>

namespace ostrel {

/// What a compositor tells of one of its outputs, as far as it can be true.
struct WaylandOutputLook {
    static constexpr int longestSide = 32'767; ///< pixels

    QString name;  ///< the connector's
    QString model; ///< of the monitor, after its maker; empty where that isn't told
    QSize mode;    ///< pixels of the buffers that it shows, before they are turned
    int transform = 0;
    int scale = 1;
    QPoint corner;                    ///< on the compositor's desktop, logical
    std::optional<QSize> logicalSize; ///< told by compositors that know fractional scales

    bool operator==(const WaylandOutputLook &) const = default;

    /// Pixels, as people see it.
    QSize pixelSize() const;
    /// Its place on the compositor's desktop.
    QRect logical() const;
};

/// An output, as long as it is there.
class WaylandOutput
{
public:
    /// @param registry  where it was announced
    /// @param global    its number there
    WaylandOutput(wl_registry *registry, std::uint32_t global, std::uint32_t version);
    WaylandOutput(const WaylandOutput &) = delete;
    WaylandOutput &operator=(const WaylandOutput &) = delete;

    std::uint32_t global() const { return m_global; }
    wl_output *get() const { return m_output.get(); }
    const WaylandOutputLook &look() const { return m_look; }
    /// To be called once there is a manager; null asks nobody.
    void askForPlace(zxdg_output_manager_v1 *manager);

private:
    void listen();
    void listenForPlace();

    const std::uint32_t m_global;
    WaylandOutputLook m_look;
    WaylandHandle<wl_output> m_output;
    WaylandHandle<zxdg_output_v1> m_place;
};

/// The outputs of a compositor and the means to get pictures of them.
class WaylandOutputs
{
public:
    /// Asks for everything; two round trips.
    /// @return Fault::NoWaylandDisplay, Fault::TimedOut
    static Result<std::shared_ptr<WaylandOutputs>> open(std::shared_ptr<WaylandConnection> connection);
    WaylandOutputs(const WaylandOutputs &) = delete;
    WaylandOutputs &operator=(const WaylandOutputs &) = delete;

    WaylandConnection &connection() const { return *m_connection; }
    wl_shm *sharedMemory() const { return m_sharedMemory.get(); }

    /// Whether pictures can be had, with word of what has changed in them.
    bool offersScreencopy() const { return m_sharedMemory && m_screencopy; }
    /// A manager of the caller's own: the compositor counts changes for each manager apart.
    WaylandHandle<zwlr_screencopy_manager_v1> bindScreencopy() const;

    /// Whether something was announced whose description is on its way.
    bool hasNews() const { return m_hasNews; }
    /// Learns what has changed since the last call; a round trip, or two.
    Result<> refresh();
    /// Those that are switched on.
    std::vector<const WaylandOutput *> all() const;
    /// @return null when it is not there any more
    const WaylandOutput *find(std::uint32_t global) const;

private:
    struct Global {
        std::uint32_t name = 0;
        std::uint32_t version = 0;
    };

    explicit WaylandOutputs(std::shared_ptr<WaylandConnection> connection);
    void listen();
    void add(const Global &global, const char *interface);
    void remove(std::uint32_t global);

    const std::shared_ptr<WaylandConnection> m_connection;
    WaylandHandle<wl_registry> m_registry;
    WaylandHandle<wl_shm> m_sharedMemory;
    WaylandHandle<zxdg_output_manager_v1> m_places;
    std::optional<Global> m_screencopy;
    std::vector<std::unique_ptr<WaylandOutput>> m_outputs;
    bool m_hasNews = false;
};

} // namespace ostrel
