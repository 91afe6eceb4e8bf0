#include "platform/wlroots/WaylandBuffer.h"

#include "base/Fault.h"

#include <QScopeGuard>

#include <cerrno>
#include <cstring>
#include <sys/mman.h>
#include <unistd.h>
#include <utility>

namespace ostrel {

namespace {

std::unexpected<Error> noMemory(int errorNumber)
{
    return std::unexpected(faultError(Fault::PictureRefused, QString::fromLocal8Bit(std::strerror(errorNumber))));
}

} // namespace

Result<std::unique_ptr<WaylandBuffer>> WaylandBuffer::make(wl_shm *sharedMemory, const WaylandPixelLayout &layout)
{
    const auto bytes = std::size_t(layout.stride) * std::size_t(layout.size.height());
    const int descriptor = ::memfd_create("ostrel-picture", MFD_CLOEXEC);
    if (descriptor < 0)
        return noMemory(errno);
    const auto close = qScopeGuard([descriptor] { ::close(descriptor); });
    if (::ftruncate(descriptor, off_t(bytes)) != 0)
        return noMemory(errno);
    void *memory = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    if (memory == MAP_FAILED)
        return noMemory(errno);
    const WaylandHandle<wl_shm_pool> pool(wl_shm_create_pool(sharedMemory, descriptor, std::int32_t(bytes)));
    WaylandHandle<wl_buffer> buffer(wl_shm_pool_create_buffer(pool.get(), 0, layout.size.width(), layout.size.height(),
                                                              std::int32_t(layout.stride), layout.format));
    return std::unique_ptr<WaylandBuffer>(new WaylandBuffer(layout, memory, bytes, std::move(buffer)));
}

WaylandBuffer::WaylandBuffer(WaylandPixelLayout layout, void *memory, std::size_t bytes,
                             WaylandHandle<wl_buffer> buffer)
    : m_layout(layout), m_memory(memory), m_bytes(bytes), m_buffer(std::move(buffer))
{}

WaylandBuffer::~WaylandBuffer()
{
    ::munmap(m_memory, m_bytes);
}

} // namespace ostrel
