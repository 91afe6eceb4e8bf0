#include "support/FakeCompositor.h"

#include "support/FakeScreencopy.h"

#include <outputs-server.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <mutex>
#include <poll.h>
#include <sys/socket.h>
#include <thread>
#include <utility>
#include <vector>

namespace ostrel {

namespace {

constexpr int outputVersion = 4;
constexpr int placesVersion = 3;

QSize logicalSizeOf(const FakeCompositor::Output &look)
{
    const QSize upright = look.transform % 2 != 0 ? look.mode.transposed() : look.mode;
    return look.logicalSize.value_or(upright / std::max(look.scale, 1));
}

void destroyResource(wl_client * /*client*/, wl_resource *resource)
{
    wl_resource_destroy(resource);
}

} // namespace

/// One output, and all that clients have made of it.
struct PluggedOutput {
    int number = 0;
    FakeCompositor::Output look;
    wl_global *global = nullptr;
    bool isPluggedIn = true;
    std::vector<wl_resource *> outputs = {};
    std::vector<wl_resource *> places = {};

    void tellOutput(wl_resource *output) const
    {
        wl_output_send_geometry(output, look.corner.x(), look.corner.y(), 0, 0, WL_OUTPUT_SUBPIXEL_UNKNOWN, "", "",
                                look.transform);
        wl_output_send_mode(output, WL_OUTPUT_MODE_CURRENT, look.mode.width(), look.mode.height(), 60'000);
        if (wl_resource_get_version(output) >= WL_OUTPUT_SCALE_SINCE_VERSION)
            wl_output_send_scale(output, look.scale);
        if (wl_resource_get_version(output) >= WL_OUTPUT_NAME_SINCE_VERSION)
            wl_output_send_name(output, look.name.constData());
        if (wl_resource_get_version(output) >= WL_OUTPUT_DONE_SINCE_VERSION)
            wl_output_send_done(output);
    }

    void tellPlace(wl_resource *place) const
    {
        const QSize size = logicalSizeOf(look);
        zxdg_output_v1_send_logical_position(place, look.corner.x(), look.corner.y());
        zxdg_output_v1_send_logical_size(place, size.width(), size.height());
    }
};

class FakeCompositor::Server
{
public:
    explicit Server(const QByteArray &socket) : m_display(wl_display_create())
    {
        wl_display_init_shm(m_display);
        wl_display_add_shm_format(m_display, WL_SHM_FORMAT_XBGR8888);
        wl_global_create(m_display, &zxdg_output_manager_v1_interface, placesVersion, this, &Server::bindPlaces);
        m_screencopy.emplace(m_display, [](wl_resource *output) {
            const auto *plugged = static_cast<PluggedOutput *>(wl_resource_get_user_data(output));
            return plugged->number;
        });
        if (wl_display_add_socket(m_display, socket.constData()) != 0)
            ADD_FAILURE() << "no socket " << socket.constData();
        m_thread = std::jthread([this](const std::stop_token &stop) { serve(stop); });
    }
    Server(const Server &) = delete;
    Server &operator=(const Server &) = delete;
    ~Server()
    {
        m_thread.request_stop();
        m_thread.join();
        wl_display_destroy_clients(m_display);
        wl_display_destroy(m_display);
    }

    /// Runs while nothing else does, and returns when the clients have been told.
    template <class Act>
    auto locked(Act act)
    {
        const std::lock_guard lock(m_mutex);
        const struct Flush {
            wl_display *display;
            ~Flush() { wl_display_flush_clients(display); }
        } flush{m_display};
        return act();
    }

    PluggedOutput &plugIn(const Output &look)
    {
        m_outputs.push_back(
            std::make_unique<PluggedOutput>(PluggedOutput{.number = int(m_outputs.size()), .look = look}));
        PluggedOutput &output = *m_outputs.back();
        output.global = wl_global_create(m_display, &wl_output_interface, outputVersion, &output, &Server::bindOutput);
        return output;
    }

    PluggedOutput &output(int number) { return *m_outputs.at(std::size_t(number)); }
    FakeScreencopy &screencopy() { return *m_screencopy; }

    void hangUp()
    {
        wl_client *client = nullptr;
        wl_client_for_each(client, wl_display_get_client_list(m_display))::shutdown(wl_client_get_fd(client),
                                                                                    SHUT_RDWR);
    }

private:
    void serve(const std::stop_token &stop)
    {
        wl_event_loop *loop = wl_display_get_event_loop(m_display);
        while (!stop.stop_requested()) {
            pollfd waiting{wl_event_loop_get_fd(loop), POLLIN, 0};
            ::poll(&waiting, 1, 10);
            locked([loop] { wl_event_loop_dispatch(loop, 0); });
        }
    }

    static void bindOutput(wl_client *client, void *data, std::uint32_t version, std::uint32_t id)
    {
        static const struct wl_output_interface requests{.release = &destroyResource};
        auto *output = static_cast<PluggedOutput *>(data);
        wl_resource *resource = wl_resource_create(client, &wl_output_interface, int(version), id);
        wl_resource_set_implementation(resource, &requests, output, [](wl_resource *gone) {
            std::erase(static_cast<PluggedOutput *>(wl_resource_get_user_data(gone))->outputs, gone);
        });
        output->outputs.push_back(resource);
        output->tellOutput(resource);
    }

    static void bindPlaces(wl_client *client, void *data, std::uint32_t version, std::uint32_t id)
    {
        static const struct zxdg_output_manager_v1_interface requests{.destroy = &destroyResource,
                                                                      .get_xdg_output = &Server::makePlace};
        wl_resource *manager = wl_resource_create(client, &zxdg_output_manager_v1_interface, int(version), id);
        wl_resource_set_implementation(manager, &requests, data, nullptr);
    }

    static void makePlace(wl_client *client, wl_resource *manager, std::uint32_t id, wl_resource *of)
    {
        static const struct zxdg_output_v1_interface requests{.destroy = &destroyResource};
        auto *output = static_cast<PluggedOutput *>(wl_resource_get_user_data(of));
        wl_resource *place =
            wl_resource_create(client, &zxdg_output_v1_interface, wl_resource_get_version(manager), id);
        wl_resource_set_implementation(place, &requests, output, [](wl_resource *gone) {
            std::erase(static_cast<PluggedOutput *>(wl_resource_get_user_data(gone))->places, gone);
        });
        output->places.push_back(place);
        output->tellPlace(place);
        // That ends the description, of both together.
        wl_output_send_done(of);
    }

    std::recursive_mutex m_mutex;
    wl_display *const m_display;
    std::vector<std::unique_ptr<PluggedOutput>> m_outputs;
    std::optional<FakeScreencopy> m_screencopy;
    std::jthread m_thread;
};

FakeCompositor::FakeCompositor(const QByteArray &socket) : m_server(std::make_unique<Server>(socket)) {}

FakeCompositor::~FakeCompositor() = default;

int FakeCompositor::plugIn(const Output &output, std::uint32_t colour)
{
    return m_server->locked([&] {
        const int number = m_server->plugIn(output).number;
        m_server->screencopy().showOutput(number, output.mode, colour);
        return number;
    });
}

void FakeCompositor::unplug(int output)
{
    m_server->locked([&] {
        PluggedOutput &plugged = m_server->output(output);
        ASSERT_TRUE(std::exchange(plugged.isPluggedIn, false)) << "output " << output << " is not there";
        // Destroying it would be the end of clients that just bind it.
        wl_global_remove(plugged.global);
        m_server->screencopy().endOutput(output);
    });
}

void FakeCompositor::forget(int output)
{
    unplug(output);
    m_server->locked([&] { wl_global_destroy(std::exchange(m_server->output(output).global, nullptr)); });
}

void FakeCompositor::change(int output, const Output &look)
{
    m_server->locked([&] {
        PluggedOutput &plugged = m_server->output(output);
        plugged.look = look;
        for (wl_resource *place : plugged.places)
            plugged.tellPlace(place);
        for (wl_resource *resource : plugged.outputs)
            plugged.tellOutput(resource);
        m_server->screencopy().resizeOutput(output, look.mode);
    });
}

void FakeCompositor::behave(int output, const Behaviour &behaviour)
{
    m_server->locked([&] { m_server->screencopy().behave(output, behaviour); });
}

void FakeCompositor::paint(int output, std::uint32_t colour)
{
    m_server->locked([&] { m_server->screencopy().paint(output, colour); });
}

void FakeCompositor::atNextCopy(std::function<void()> happens)
{
    m_server->locked([&] { m_server->screencopy().atNextCopy(std::move(happens)); });
}

void FakeCompositor::hangUp()
{
    m_server->locked([&] { m_server->hangUp(); });
}

int FakeCompositor::pictures(int output) const
{
    return m_server->locked([&] { return m_server->screencopy().pictures(output); });
}

} // namespace ostrel
