#include "platform/x11/capture/X11SharedSegment.h"

#include "platform/x11/base/X11Connection.h"

#include <atomic>
#include <limits>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <utility>

namespace ostrel {

namespace {

/// A server at the other end of a network would look the segment's number up among its own machine's.
bool isOnThisMachine(const X11Connection &connection)
{
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    const int descriptor = xcb_get_file_descriptor(connection.get());
    return getsockname(descriptor, reinterpret_cast<sockaddr *>(&address), &length) == 0 &&
           address.ss_family == AF_UNIX;
}

bool hasExtension(const X11Connection &connection)
{
    const auto *extension = xcb_get_extension_data(connection.get(), &xcb_shm_id);
    return extension && extension->present;
}

} // namespace

std::unique_ptr<X11SharedSegment> X11SharedSegment::attach(std::shared_ptr<X11Connection> connection, std::size_t bytes)
{
    constexpr uint8_t writable = 0;
    if (!isOnThisMachine(*connection) || !hasExtension(*connection))
        return nullptr;
    const int number = shmget(IPC_PRIVATE, bytes, IPC_CREAT | 0600);
    if (number < 0)
        return nullptr;
    void *memory = shmat(number, nullptr, 0);
    if (memory == reinterpret_cast<void *>(-1)) { // NOLINT(performance-no-int-to-ptr): its word for failure
        shmctl(number, IPC_RMID, nullptr);
        return nullptr;
    }
    std::unique_ptr<X11SharedSegment> segment(
        new X11SharedSegment(std::move(connection), static_cast<std::uint8_t *>(memory)));
    xcb_connection_t *server = segment->m_connection->get();
    const bool attached =
        segment->m_connection->check(xcb_shm_attach_checked(server, segment->m_id, uint32_t(number), writable));
    // Both hold it by now, or never will: from here on it ends with its users, even if we are killed.
    shmctl(number, IPC_RMID, nullptr);
    if (!attached || !segment->isSeenByServer())
        return nullptr;
    return segment;
}

X11SharedSegment::X11SharedSegment(std::shared_ptr<X11Connection> connection, std::uint8_t *memory)
    : m_connection(std::move(connection)), m_memory(memory), m_id(xcb_generate_id(m_connection->get()))
{}

X11SharedSegment::~X11SharedSegment()
{
    xcb_shm_detach(m_connection->get(), m_id);
    xcb_flush(m_connection->get());
    shmdt(m_memory);
}

/// In another container the same number may be somebody else's segment. So the server writes one pixel, twice over
/// different marks: no pixel equals both.
bool X11SharedSegment::isSeenByServer() const
{
    constexpr uint32_t allPlanes = std::numeric_limits<uint32_t>::max();
    auto *pixel = reinterpret_cast<std::uint32_t *>(m_memory);
    for (const std::uint32_t mark : {0x5aa55aa5u, ~0x5aa55aa5u}) {
        std::atomic_ref(*pixel).store(mark);
        const auto written = m_connection->reply<xcb_shm_get_image_reply>(xcb_shm_get_image(
            m_connection->get(), m_connection->root(), 0, 0, 1, 1, allPlanes, XCB_IMAGE_FORMAT_Z_PIXMAP, m_id, 0));
        if (!written)
            return false;
        if (std::atomic_ref(*pixel).load() != mark)
            return true;
    }
    return false;
}

} // namespace ostrel
