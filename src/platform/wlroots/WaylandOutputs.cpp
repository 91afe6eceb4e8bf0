#include "platform/wlroots/WaylandOutputs.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace ostrel {

namespace {

constexpr std::uint32_t outputVersion = 4; ///< tells names
constexpr std::uint32_t placeVersion = 3;
/// The first that says when a picture is fully described, and tells changes.
constexpr std::uint32_t screencopyVersion = 3;
constexpr int highestTransform = 7;
/// Beyond any desktop, but near enough to compute with.
constexpr int farthest = 1 << 20;

QPoint cornerAt(int x, int y)
{
    return {std::clamp(x, -farthest, farthest), std::clamp(y, -farthest, farthest)};
}

/// @return absent for what can't be the size of an output
std::optional<QSize> possibleSize(int width, int height)
{
    const auto isSide = [](int side) { return side > 0 && side <= WaylandOutputLook::longestSide; };
    return isSide(width) && isSide(height) ? std::optional(QSize(width, height)) : std::nullopt;
}

template <typename T>
T *bind(wl_registry *registry, std::uint32_t name, const wl_interface &interface, std::uint32_t version)
{
    return static_cast<T *>(wl_registry_bind(registry, name, &interface, version));
}

} // namespace

QSize WaylandOutputLook::pixelSize() const
{
    return transform % 2 != 0 ? mode.transposed() : mode;
}

QRect WaylandOutputLook::logical() const
{
    return {corner, logicalSize.value_or(pixelSize() / std::max(scale, 1))};
}

WaylandOutput::WaylandOutput(wl_registry *registry, std::uint32_t global, std::uint32_t version)
    : m_global(global),
      m_output(bind<wl_output>(registry, global, wl_output_interface, std::min(version, outputVersion)))
{
    listen();
}

void WaylandOutput::listen()
{
    static const auto look = [](void *output) -> WaylandOutputLook & {
        return static_cast<WaylandOutput *>(output)->m_look;
    };
    static const wl_output_listener listener{
        .geometry =
            [](void *data, wl_output *, int x, int y, int, int, int, const char *maker, const char *model,
               int transform) {
                // Where the other protocol tells the place it is the better one, and comes after this.
                look(data).corner = cornerAt(x, y);
                look(data).model =
                    QStringLiteral("%1 %2").arg(QString::fromUtf8(maker), QString::fromUtf8(model)).trimmed();
                look(data).transform = transform >= 0 && transform <= highestTransform ? transform : 0;
            },
        .mode =
            [](void *data, wl_output *, std::uint32_t flags, int width, int height, int) {
                if (flags & WL_OUTPUT_MODE_CURRENT)
                    look(data).mode = possibleSize(width, height).value_or(QSize());
            },
        .done = [](void *, wl_output *) {},
        .scale = [](void *data, wl_output *, int scale) { look(data).scale = scale; },
        .name = [](void *data, wl_output *, const char *name) { look(data).name = QString::fromUtf8(name); },
        .description = [](void *, wl_output *, const char *) {},
    };
    wl_output_add_listener(m_output.get(), &listener, this);
}

void WaylandOutput::askForPlace(zxdg_output_manager_v1 *manager)
{
    if (!manager || m_place)
        return;
    m_place.reset(zxdg_output_manager_v1_get_xdg_output(manager, m_output.get()));
    listenForPlace();
}

void WaylandOutput::listenForPlace()
{
    static const auto look = [](void *output) -> WaylandOutputLook & {
        return static_cast<WaylandOutput *>(output)->m_look;
    };
    static const zxdg_output_v1_listener listener{
        .logical_position = [](void *data, zxdg_output_v1 *, int x, int y) { look(data).corner = cornerAt(x, y); },
        .logical_size = [](void *data, zxdg_output_v1 *, int width,
                           int height) { look(data).logicalSize = possibleSize(width, height); },
        .done = [](void *, zxdg_output_v1 *) {},
        .name = [](void *data, zxdg_output_v1 *, const char *name) { look(data).name = QString::fromUtf8(name); },
        .description = [](void *, zxdg_output_v1 *, const char *) {},
    };
    zxdg_output_v1_add_listener(m_place.get(), &listener, this);
}

Result<std::shared_ptr<WaylandOutputs>> WaylandOutputs::open(std::shared_ptr<WaylandConnection> connection)
{
    std::shared_ptr<WaylandOutputs> outputs(new WaylandOutputs(std::move(connection)));
    if (const auto known = outputs->refresh(); !known)
        return std::unexpected(known.error());
    return outputs;
}

WaylandOutputs::WaylandOutputs(std::shared_ptr<WaylandConnection> connection)
    : m_connection(std::move(connection)), m_registry(wl_display_get_registry(m_connection->get()))
{
    listen();
}

void WaylandOutputs::listen()
{
    static const wl_registry_listener listener{
        .global =
            [](void *self, wl_registry *, std::uint32_t name, const char *interface, std::uint32_t version) {
                static_cast<WaylandOutputs *>(self)->add({.name = name, .version = version}, interface);
            },
        .global_remove = [](void *self, wl_registry *,
                            std::uint32_t name) { static_cast<WaylandOutputs *>(self)->remove(name); },
    };
    wl_registry_add_listener(m_registry.get(), &listener, this);
}

void WaylandOutputs::add(const Global &global, const char *interface)
{
    const auto is = [interface](const wl_interface &known) { return std::strcmp(interface, known.name) == 0; };
    if (is(wl_output_interface)) {
        m_outputs.push_back(std::make_unique<WaylandOutput>(m_registry.get(), global.name, global.version));
        m_hasNews = true;
    } else if (is(wl_shm_interface)) {
        m_sharedMemory.reset(bind<wl_shm>(m_registry.get(), global.name, wl_shm_interface, 1));
    } else if (is(zxdg_output_manager_v1_interface)) {
        m_places.reset(bind<zxdg_output_manager_v1>(m_registry.get(), global.name, zxdg_output_manager_v1_interface,
                                                    std::min(global.version, placeVersion)));
    } else if (is(zwlr_screencopy_manager_v1_interface) && global.version >= screencopyVersion) {
        m_screencopy = global;
    }
}

void WaylandOutputs::remove(std::uint32_t global)
{
    std::erase_if(m_outputs, [global](const auto &output) { return output->global() == global; });
    if (m_screencopy && m_screencopy->name == global)
        m_screencopy.reset();
}

WaylandHandle<zwlr_screencopy_manager_v1> WaylandOutputs::bindScreencopy() const
{
    return WaylandHandle<zwlr_screencopy_manager_v1>(bind<zwlr_screencopy_manager_v1>(
        m_registry.get(), m_screencopy->name, zwlr_screencopy_manager_v1_interface, screencopyVersion));
}

Result<> WaylandOutputs::refresh()
{
    // Outputs that keep coming while they are asked for must not keep us.
    constexpr int mostRounds = 5;
    for (int round = 0; round < mostRounds; ++round) {
        m_hasNews = false;
        if (const auto answered = m_connection->roundTrip(); !answered)
            return answered;
        for (const auto &output : m_outputs)
            output->askForPlace(m_places.get());
        if (!m_hasNews)
            break;
    }
    return {};
}

std::vector<const WaylandOutput *> WaylandOutputs::all() const
{
    std::vector<const WaylandOutput *> found;
    for (const auto &output : m_outputs) {
        if (!output->look().mode.isEmpty())
            found.push_back(output.get());
    }
    return found;
}

const WaylandOutput *WaylandOutputs::find(std::uint32_t global) const
{
    const auto found = std::ranges::find(m_outputs, global, &WaylandOutput::global);
    return found == m_outputs.end() ? nullptr : found->get();
}

} // namespace ostrel
