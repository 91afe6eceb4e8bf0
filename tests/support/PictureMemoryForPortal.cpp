// Preloaded into the tests' screen cast backend alone, xdg-desktop-portal-wlr 0.7: that one casts nothing where the
// compositor offers no graphics memory for pictures, though it has no need of it, and on a machine without a graphics
// card there is none. Here every offer of ordinary memory is followed by one of graphics memory. May go when the
// backend is 0.7.1.

#include <cstdint>
#include <cstring>
#include <dlfcn.h>

struct wl_proxy;
extern "C" const char *wl_proxy_get_class(wl_proxy *proxy);
extern "C" std::uint32_t wl_proxy_get_version(wl_proxy *proxy);

namespace {

using Event = void (*)();
using OrdinaryMemory = void (*)(void *, wl_proxy *, std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t);
using GraphicsMemory = void (*)(void *, wl_proxy *, std::uint32_t, std::uint32_t, std::uint32_t);

/// The events of a picture under way, in the protocol's order.
struct FrameEvents {
    OrdinaryMemory ordinaryMemory;
    Event flags, ready, failed, damage;
    GraphicsMemory graphicsMemory;
    Event allMemoryTold;
};

/// What the backend wants to hear: one table for all of its pictures.
const FrameEvents *wanted = nullptr;

void offerBoth(void *data, wl_proxy *frame, std::uint32_t format, std::uint32_t width, std::uint32_t height,
               std::uint32_t stride)
{
    constexpr std::uint32_t sameColours = 0x34325258; // XR24
    wanted->ordinaryMemory(data, frame, format, width, height, stride);
    wanted->graphicsMemory(data, frame, sameColours, width, height);
}

} // namespace

extern "C" int wl_proxy_add_listener(wl_proxy *proxy, Event *events, void *data)
{
    using Add = int (*)(wl_proxy *, Event *, void *);
    static const auto add = reinterpret_cast<Add>(::dlsym(RTLD_NEXT, "wl_proxy_add_listener"));
    constexpr std::uint32_t firstWithGraphicsMemory = 3;
    if (std::strcmp(wl_proxy_get_class(proxy), "zwlr_screencopy_frame_v1") != 0 ||
        wl_proxy_get_version(proxy) < firstWithGraphicsMemory)
        return add(proxy, events, data);
    wanted = reinterpret_cast<const FrameEvents *>(events);
    static FrameEvents told = *wanted;
    told.ordinaryMemory = offerBoth;
    return add(proxy, reinterpret_cast<Event *>(&told), data);
}
