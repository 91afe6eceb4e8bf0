#pragma once

#include <outputs-client.h>
#include <screencopy-client.h>

#include <memory>
#include <wayland-client.h>

namespace ostrel {

struct WaylandDeleter {
    void operator()(wl_buffer *buffer) const { wl_buffer_destroy(buffer); }
    void operator()(wl_callback *callback) const { wl_callback_destroy(callback); }
    void operator()(wl_registry *registry) const { wl_registry_destroy(registry); }
    void operator()(wl_shm *sharedMemory) const { wl_shm_destroy(sharedMemory); }
    void operator()(wl_shm_pool *pool) const { wl_shm_pool_destroy(pool); }
    void operator()(zwlr_screencopy_manager_v1 *manager) const { zwlr_screencopy_manager_v1_destroy(manager); }
    void operator()(zxdg_output_manager_v1 *manager) const { zxdg_output_manager_v1_destroy(manager); }
    void operator()(zxdg_output_v1 *output) const { zxdg_output_v1_destroy(output); }
    void operator()(wl_output *output) const
    {
        if (wl_output_get_version(output) >= WL_OUTPUT_RELEASE_SINCE_VERSION)
            wl_output_release(output);
        else
            wl_output_destroy(output);
    }
};

/// Owns an object of a Wayland connection; to be destroyed before the connection.
template <typename T>
using WaylandHandle = std::unique_ptr<T, WaylandDeleter>;

} // namespace ostrel
