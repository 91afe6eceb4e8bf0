#include "TestPictures.h"

#include "ConnectedSocket.h"
#include "support/TestProcess.h"

#include <cstring>
#include <spa/buffer/meta.h>
#include <spa/param/buffers.h>
#include <spa/param/format.h>
#include <spa/pod/builder.h>
#include <sys/mman.h>
#include <unistd.h>

namespace ostrel {

namespace {

using namespace std::chrono_literals;

template <class T>
const spa_pod *metaOf(spa_pod_builder &builder, spa_meta_type type, int count = 1)
{
    return static_cast<const spa_pod *>(
        spa_pod_builder_add_object(&builder, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta, SPA_PARAM_META_type,
                                   SPA_POD_Id(type), SPA_PARAM_META_size, SPA_POD_Int(int(sizeof(T)) * count)));
}

spa_region regionOf(const QRect &rectangle)
{
    return {.position = {rectangle.x(), rectangle.y()},
            .size = {std::uint32_t(rectangle.width()), std::uint32_t(rectangle.height())}};
}

template <class T>
T *metaIn(const pw_buffer *buffer, spa_meta_type type)
{
    return static_cast<T *>(spa_buffer_find_meta_data(buffer->buffer, type, sizeof(T)));
}

} // namespace

TestPictures::TestPictures(const QString &socket, const Look &look) : m_look(look)
{
    m_remote = PipeWireRemote::connect(connectedSocket(socket), 20s).value();
    static const pw_stream_events events = [] {
        pw_stream_events table{};
        table.version = PW_VERSION_STREAM_EVENTS;
        table.state_changed = [](void *self, pw_stream_state, pw_stream_state state, const char *) {
            auto *pictures = static_cast<TestPictures *>(self);
            if (state == PW_STREAM_STATE_STREAMING)
                ++pictures->m_viewings;
            pictures->m_remote->wake();
        };
        table.param_changed = [](void *self, uint32_t id, const spa_pod *param) {
            if (id == SPA_PARAM_Format && param != nullptr)
                static_cast<TestPictures *>(self)->takeFormat(param);
        };
        table.add_buffer = [](void *self, pw_buffer *buffer) { static_cast<TestPictures *>(self)->addBuffer(buffer); };
        table.remove_buffer = [](void *self, pw_buffer *buffer) {
            --static_cast<TestPictures *>(self)->m_buffers;
            spa_data &data = buffer->buffer->datas[0];
            ::munmap(data.data, data.maxsize);
            ::close(int(data.fd));
        };
        return table;
    }();
    const PipeWireRemote::Lock lock(*m_remote);
    m_stream =
        pw_stream_new(m_remote->core(), "screen", pw_properties_new(PW_KEY_MEDIA_CLASS, "Video/Source", nullptr));
    pw_stream_add_listener(m_stream, &m_listener, &events, this);
    std::byte memory[1024];
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, memory, sizeof(memory));
    const spa_pod *offer = writeOffer(builder);
    // PipeWire's flags are enumerations. NOLINTNEXTLINE(clang-analyzer-optin.core.EnumCastOutOfRange)
    constexpr auto flags = pw_stream_flags(PW_STREAM_FLAG_DRIVER | PW_STREAM_FLAG_ALLOC_BUFFERS);
    pw_stream_connect(m_stream, PW_DIRECTION_OUTPUT, PW_ID_ANY, flags, &offer, 1);
    if (!m_remote->waitUntil([this] { return pw_stream_get_state(m_stream, nullptr) == PW_STREAM_STATE_PAUSED; }, 20s))
        failTest(QStringLiteral("PipeWire did not take the pictures"));
}

TestPictures::~TestPictures()
{
    const PipeWireRemote::Lock lock(*m_remote);
    pw_stream_destroy(m_stream); // gives the buffers back
}

quint32 TestPictures::node() const
{
    const PipeWireRemote::Lock lock(*m_remote);
    return pw_stream_get_node_id(m_stream);
}

const spa_pod *TestPictures::writeOffer(spa_pod_builder &builder) const
{
    const spa_rectangle size{std::uint32_t(m_look.size.width()), std::uint32_t(m_look.size.height())};
    constexpr spa_fraction variable{0, 1};
    constexpr spa_fraction slowest{1, 1};
    constexpr spa_fraction fastest{240, 1};
    spa_pod_frame frame{};
    spa_pod_builder_push_object(&builder, &frame, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat);
    spa_pod_builder_add(&builder, SPA_FORMAT_mediaType, SPA_POD_Id(SPA_MEDIA_TYPE_video), SPA_FORMAT_mediaSubtype,
                        SPA_POD_Id(SPA_MEDIA_SUBTYPE_raw), SPA_FORMAT_VIDEO_format, SPA_POD_Id(m_look.format), 0);
    if (m_look.memory == Memory::Graphics) {
        spa_pod_builder_prop(&builder, SPA_FORMAT_VIDEO_modifier, SPA_POD_PROP_FLAG_MANDATORY);
        spa_pod_builder_long(&builder, 0);
    }
    spa_pod_builder_add(&builder, SPA_FORMAT_VIDEO_size, SPA_POD_Rectangle(&size), SPA_FORMAT_VIDEO_framerate,
                        SPA_POD_Fraction(&variable), SPA_FORMAT_VIDEO_maxFramerate,
                        SPA_POD_CHOICE_RANGE_Fraction(&fastest, &slowest, &fastest), 0);
    return static_cast<const spa_pod *>(spa_pod_builder_pop(&builder, &frame));
}

void TestPictures::takeFormat(const spa_pod * /*format*/)
{
    std::byte memory[1024];
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, memory, sizeof(memory));
    const int kind = m_look.memory == Memory::Graphics ? SPA_DATA_DmaBuf : SPA_DATA_MemFd;
    const spa_pod *params[] = {
        static_cast<const spa_pod *>(spa_pod_builder_add_object(
            &builder, SPA_TYPE_OBJECT_ParamBuffers, SPA_PARAM_Buffers, SPA_PARAM_BUFFERS_buffers, SPA_POD_Int(3),
            SPA_PARAM_BUFFERS_blocks, SPA_POD_Int(1), SPA_PARAM_BUFFERS_size,
            SPA_POD_Int(stride() * m_look.size.height()), SPA_PARAM_BUFFERS_stride, SPA_POD_Int(stride()),
            SPA_PARAM_BUFFERS_dataType, SPA_POD_CHOICE_FLAGS_Int(1 << kind))),
        metaOf<spa_meta_header>(builder, SPA_META_Header),
        metaOf<spa_meta_region>(builder, SPA_META_VideoCrop),
        metaOf<spa_meta_region>(builder, SPA_META_VideoDamage, 4),
        metaOf<spa_meta_videotransform>(builder, SPA_META_VideoTransform),
    };
    pw_stream_update_params(m_stream, params, std::size(params));
}

void TestPictures::addBuffer(const pw_buffer *buffer)
{
    ++m_buffers;
    spa_data &data = buffer->buffer->datas[0];
    data.type = m_look.memory == Memory::Graphics ? SPA_DATA_DmaBuf : SPA_DATA_MemFd;
    data.flags = SPA_DATA_FLAG_READWRITE;
    data.maxsize = std::uint32_t(stride() * m_look.size.height());
    data.mapoffset = 0;
    data.fd = ::memfd_create("picture", MFD_CLOEXEC);
    if (::ftruncate(int(data.fd), off_t(data.maxsize)) != 0)
        failTest(QStringLiteral("no memory for a picture"));
    data.data = ::mmap(nullptr, data.maxsize, PROT_READ | PROT_WRITE, MAP_SHARED, int(data.fd), 0);
}

void TestPictures::waitForViewer()
{
    const PipeWireRemote::Lock lock(*m_remote);
    if (!m_remote->waitUntil([this] { return pw_stream_get_state(m_stream, nullptr) == PW_STREAM_STATE_STREAMING; },
                             20s))
        failTest(QStringLiteral("nobody takes the pictures"));
}

void TestPictures::send(const std::vector<std::uint32_t> &pixels, const Telling &telling)
{
    waitForViewer();
    pw_buffer *buffer = nullptr;
    waitUntil(QStringLiteral("memory for a picture"), 20s, [&] {
        const PipeWireRemote::Lock lock(*m_remote);
        buffer = pw_stream_dequeue_buffer(m_stream);
        return buffer != nullptr;
    });
    {
        const PipeWireRemote::Lock lock(*m_remote);
        write(buffer, pixels, telling);
        pw_stream_queue_buffer(m_stream, buffer);
    }
    push();
}

/// One push is not enough: it moves nothing while the viewer is still busy with the picture before, and a viewer that
/// is just starting misses it.
void TestPictures::push()
{
    waitUntil(QStringLiteral("the viewer to read a picture"), 20s, [this] {
        const PipeWireRemote::Lock lock(*m_remote);
        pw_stream_trigger_process(m_stream);
        pw_time time{};
        pw_stream_get_time_n(m_stream, &time, sizeof(time));
        return time.queued_buffers == 0 && time.avail_buffers == m_buffers;
    });
}

void TestPictures::write(const pw_buffer *buffer, const std::vector<std::uint32_t> &pixels,
                         const Telling &telling) const
{
    spa_data &data = buffer->buffer->datas[0];
    const auto width = std::size_t(m_look.size.width());
    for (int y = 0; y < m_look.size.height(); ++y)
        std::memcpy(static_cast<char *>(data.data) + std::ptrdiff_t(y) * stride(), &pixels[std::size_t(y) * width],
                    width * 4);
    data.chunk->offset = 0;
    data.chunk->size = telling.isEmpty ? 0 : data.maxsize;
    data.chunk->stride = telling.stride.value_or(stride());
    data.chunk->flags = telling.isChunkCorrupted ? std::int32_t(SPA_CHUNK_FLAG_CORRUPTED) : 0;
    *metaIn<spa_meta_header>(buffer,
                             SPA_META_Header) = {.flags = telling.isCorrupted ? SPA_META_HEADER_FLAG_CORRUPTED : 0U,
                                                 .offset = 0,
                                                 .pts = 0,
                                                 .dts_offset = 0,
                                                 .seq = telling.sequence};
    metaIn<spa_meta_region>(buffer, SPA_META_VideoCrop)->region = regionOf(telling.crop.value_or(QRect(0, 0, 0, 0)));
    metaIn<spa_meta_videotransform>(buffer, SPA_META_VideoTransform)->transform = std::uint32_t(telling.transform);
    auto *damage = metaIn<spa_meta_region>(buffer, SPA_META_VideoDamage);
    const QList<QRect> changes = telling.changes.value_or(QList<QRect>());
    for (const QRect &change : changes)
        (damage++)->region = regionOf(change);
    damage->region = regionOf(QRect(0, 0, 0, 0));
}

void TestPictures::resize(QSize size)
{
    const PipeWireRemote::Lock lock(*m_remote);
    m_look.size = size;
    std::byte memory[1024];
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, memory, sizeof(memory));
    const spa_pod *offer = writeOffer(builder);
    pw_stream_update_params(m_stream, &offer, 1);
}

} // namespace ostrel
