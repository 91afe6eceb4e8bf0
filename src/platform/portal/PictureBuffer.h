#pragma once

#include "platform/pixels/PixelConversion.h"
#include "platform/portal/PictureFeed.h"
#include "platform/portal/PictureFormats.h"

#include <spa/buffer/buffer.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

namespace ostrel {

/// Memory of a producer, mapped for reading.
class MappedMemory
{
public:
    /// @return null when it can't be mapped, or needs not be because it is there already
    static std::unique_ptr<MappedMemory> map(const spa_data &data);
    MappedMemory(const MappedMemory &) = delete;
    MappedMemory &operator=(const MappedMemory &) = delete;
    ~MappedMemory();

    const std::uint8_t *bytes() const { return static_cast<const std::uint8_t *>(m_start) + m_offset; }
    /// Whether it can be read at any time, whatever its producer does: what a file has lost must not be read.
    bool keepsItsLength() const { return m_keepsItsLength; }

    /// While it lives, what the graphics card writes can be read.
    class Access
    {
    public:
        explicit Access(const MappedMemory *memory);
        Access(const Access &) = delete;
        Access &operator=(const Access &) = delete;
        ~Access();

    private:
        void synchronise(std::uint64_t flags) const;
        const MappedMemory *const m_memory;
    };

private:
    MappedMemory(void *start, std::size_t length, std::size_t offset, int graphicsDescriptor, bool keepsItsLength);

    void *const m_start;
    const std::size_t m_length;
    const std::size_t m_offset;     ///< mappings begin where pages do
    const int m_graphicsDescriptor; ///< -1 for ordinary memory
    const bool m_keepsItsLength;
};

/// What the producer says about the picture in a buffer.
struct BufferReading {
    ProducedPicture picture;
    std::optional<std::uint64_t> sequence; ///< where the producer counts its pictures
};

/// Absent when there is no whole picture in the buffer: it is empty, or marked as damaged, or smaller than it must be.
/// @param bytes of the buffer's memory; may be null
std::optional<BufferReading> readBuffer(const spa_buffer &buffer, const PictureFormats::Agreed &format,
                                        const std::uint8_t *bytes);

} // namespace ostrel
