#include "platform/portal/PictureBuffer.h"

#include <linux/dma-buf.h>
#include <spa/buffer/buffer.h>
#include <spa/buffer/meta.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ostrel {

namespace {

constexpr std::int64_t bytesPerPixel = 4;

/// Whether reading that far stays within the file; graphics memory doesn't say how long it is.
bool isLongEnough(const spa_data &data)
{
    if (data.type == SPA_DATA_DmaBuf)
        return true;
    struct stat facts = {};
    return ::fstat(int(data.fd), &facts) == 0 &&
           facts.st_size >= std::int64_t(data.mapoffset) + std::int64_t(data.maxsize);
}

bool keepsItsLengthForGood(const spa_data &data)
{
    if (data.type == SPA_DATA_DmaBuf)
        return true;
    const int seals = ::fcntl(int(data.fd), F_GET_SEALS);
    return seals >= 0 && (seals & F_SEAL_SHRINK) != 0;
}

template <class T>
const T *metaIn(const spa_buffer &buffer, spa_meta_type type)
{
    return static_cast<const T *>(spa_buffer_find_meta_data(&buffer, type, sizeof(T)));
}

bool isMarkedBad(const spa_buffer &buffer)
{
    const auto *header = metaIn<spa_meta_header>(buffer, SPA_META_Header);
    const auto flags = std::uint32_t(buffer.datas[0].chunk->flags);
    return (flags & (SPA_CHUNK_FLAG_CORRUPTED | SPA_CHUNK_FLAG_EMPTY)) != 0 ||
           (header != nullptr && (header->flags & SPA_META_HEADER_FLAG_CORRUPTED) != 0);
}

/// The part of the picture that is meant.
QRect cropOf(const spa_buffer &buffer, QSize size)
{
    const QRect whole(QPoint(), size);
    const auto *crop = metaIn<spa_meta_region>(buffer, SPA_META_VideoCrop);
    if (crop == nullptr || !spa_meta_region_is_valid(crop))
        return whole;
    const spa_region &region = crop->region;
    // Rectangles that reach over the edge are cut off; QRect must not be given what it can't count.
    const auto bounded = [](std::uint32_t length) { return int(std::min<std::uint32_t>(length, 32'767)); };
    const auto near = [](std::int32_t place) { return std::clamp(place, -32'767, 32'767); };
    return QRect(near(region.position.x), near(region.position.y), bounded(region.size.width),
                 bounded(region.size.height)) &
           whole;
}

/// Relative to the crop. Nothing said is nothing known: there are producers that leave the list empty.
std::optional<QList<QRect>> changesIn(const spa_buffer &buffer, const QRect &crop)
{
    const spa_meta *damage = spa_buffer_find_meta(&buffer, SPA_META_VideoDamage);
    if (damage == nullptr)
        return std::nullopt;
    const auto *regions = static_cast<const spa_meta_region *>(damage->data);
    const std::size_t count = damage->size / sizeof(spa_meta_region);
    QList<QRect> changes;
    for (std::size_t i = 0; i < count && spa_meta_region_is_valid(&regions[i]); ++i) {
        const spa_region &region = regions[i].region;
        const auto bounded = [](std::uint32_t length) { return int(std::min<std::uint32_t>(length, 65'534)); };
        const auto near = [](std::int32_t place) { return std::clamp(place, -32'767, 32'767); };
        changes.append(QRect(near(region.position.x) - crop.x(), near(region.position.y) - crop.y(),
                             bounded(region.size.width), bounded(region.size.height)));
    }
    // A full list may have been cut off.
    if (changes.isEmpty() || std::size_t(changes.size()) == count)
        return std::nullopt;
    return changes;
}

int transformOf(const spa_buffer &buffer)
{
    const auto *meta = metaIn<spa_meta_videotransform>(buffer, SPA_META_VideoTransform);
    // The same numbers as wl_output's.
    return meta != nullptr && meta->transform <= SPA_META_TRANSFORMATION_Flipped270 ? int(meta->transform) : 0;
}

} // namespace

std::unique_ptr<MappedMemory> MappedMemory::map(const spa_data &data)
{
    if ((data.type != SPA_DATA_MemFd && data.type != SPA_DATA_DmaBuf) || data.fd < 0 || data.maxsize == 0 ||
        !isLongEnough(data))
        return nullptr;
    const auto pageSize = std::size_t(::sysconf(_SC_PAGESIZE));
    const std::size_t offset = data.mapoffset % pageSize;
    const std::size_t length = data.maxsize + offset;
    void *start = ::mmap(nullptr, length, PROT_READ, MAP_SHARED, int(data.fd), off_t(data.mapoffset) - off_t(offset));
    if (start == MAP_FAILED)
        return nullptr;
    const int graphicsDescriptor = data.type == SPA_DATA_DmaBuf ? int(data.fd) : -1;
    return std::unique_ptr<MappedMemory>(
        new MappedMemory(start, length, offset, graphicsDescriptor, keepsItsLengthForGood(data)));
}

MappedMemory::MappedMemory(void *start, std::size_t length, std::size_t offset, int graphicsDescriptor,
                           bool keepsItsLength)
    : m_start(start), m_length(length), m_offset(offset), m_graphicsDescriptor(graphicsDescriptor),
      m_keepsItsLength(keepsItsLength)
{}

MappedMemory::~MappedMemory()
{
    ::munmap(m_start, m_length);
}

MappedMemory::Access::Access(const MappedMemory *memory) : m_memory(memory)
{
    synchronise(DMA_BUF_SYNC_START | DMA_BUF_SYNC_READ);
}

MappedMemory::Access::~Access()
{
    synchronise(DMA_BUF_SYNC_END | DMA_BUF_SYNC_READ);
}

void MappedMemory::Access::synchronise(std::uint64_t flags) const
{
    if (m_memory == nullptr || m_memory->m_graphicsDescriptor < 0)
        return;
    dma_buf_sync sync{.flags = flags};
    // A driver that does not know of it needs it not.
    while (::ioctl(m_memory->m_graphicsDescriptor, DMA_BUF_IOCTL_SYNC, &sync) != 0 && errno == EINTR) {
    }
}

std::optional<BufferReading> readBuffer(const spa_buffer &buffer, const PictureFormats::Agreed &format,
                                        const std::uint8_t *bytes)
{
    if (bytes == nullptr || buffer.n_datas < 1 || isMarkedBad(buffer))
        return std::nullopt;
    const spa_data &data = buffer.datas[0];
    const spa_chunk &chunk = *data.chunk;
    const std::int64_t rowBytes = format.size.width() * bytesPerPixel;
    const std::int64_t stride = chunk.stride == 0 ? rowBytes : chunk.stride;
    const std::int64_t end = std::int64_t(chunk.offset) + stride * (format.size.height() - 1) + rowBytes;
    // Graphics memory often says nothing of its length in use.
    const bool isEmpty = chunk.size == 0 && data.type != SPA_DATA_DmaBuf;
    if (isEmpty || stride < rowBytes || end > data.maxsize)
        return std::nullopt;
    const QRect crop = cropOf(buffer, format.size);
    if (crop.isEmpty())
        return std::nullopt;

    BufferReading reading;
    reading.picture.source = {.pixels = bytes + chunk.offset + crop.y() * stride + crop.x() * bytesPerPixel,
                              .size = crop.size(),
                              .stride = std::ptrdiff_t(stride)};
    reading.picture.conversion = {.transform = transformOf(buffer), .bottomUp = false, .redFirst = format.redFirst};
    reading.picture.changes = changesIn(buffer, crop);
    if (const auto *header = metaIn<spa_meta_header>(buffer, SPA_META_Header); header != nullptr && header->seq != 0)
        reading.sequence = header->seq;
    return reading;
}

} // namespace ostrel
