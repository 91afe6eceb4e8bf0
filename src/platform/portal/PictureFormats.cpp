#include "platform/portal/PictureFormats.h"

#include <spa/buffer/buffer.h>
#include <spa/param/buffers.h>
#include <spa/param/video/format-utils.h>
#include <spa/pod/builder.h>
#include <spa/pod/iter.h>

#include <algorithm>

namespace ostrel::PictureFormats {

namespace {

constexpr spa_rectangle smallest{1, 1};
constexpr spa_rectangle largest{32'767, 32'767};
constexpr spa_rectangle usual{1'920, 1'080};

/// The modifier of graphics memory that holds one row after the other.
constexpr int64_t linearRows = 0;

spa_fraction wantedRate(const DisplayCaptureConfiguration &configuration)
{
    constexpr qint64 unitsASecond = 600;
    const qint64 interval = std::clamp<qint64>(configuration.minimumFrameInterval600, 1, unitsASecond);
    return {.num = uint32_t(unitsASecond), .denom = uint32_t(interval)};
}

enum class Memory { Ordinary, Graphics };

const spa_pod *writeFormat(spa_pod_builder &builder, spa_fraction rate, Memory memory)
{
    constexpr spa_fraction variable{.num = 0, .denom = 1};
    spa_pod_frame frame{};
    spa_pod_builder_push_object(&builder, &frame, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat);
    spa_pod_builder_add(&builder, SPA_FORMAT_mediaType, SPA_POD_Id(SPA_MEDIA_TYPE_video), SPA_FORMAT_mediaSubtype,
                        SPA_POD_Id(SPA_MEDIA_SUBTYPE_raw), SPA_FORMAT_VIDEO_format,
                        SPA_POD_CHOICE_ENUM_Id(5, SPA_VIDEO_FORMAT_BGRx, SPA_VIDEO_FORMAT_BGRx, SPA_VIDEO_FORMAT_BGRA,
                                               SPA_VIDEO_FORMAT_RGBx, SPA_VIDEO_FORMAT_RGBA),
                        0);
    if (memory == Memory::Graphics) {
        spa_pod_builder_prop(&builder, SPA_FORMAT_VIDEO_modifier, SPA_POD_PROP_FLAG_MANDATORY);
        spa_pod_builder_long(&builder, linearRows);
    }
    spa_pod_builder_add(&builder, SPA_FORMAT_VIDEO_size, SPA_POD_CHOICE_RANGE_Rectangle(&usual, &smallest, &largest),
                        SPA_FORMAT_VIDEO_framerate, SPA_POD_Fraction(&variable), SPA_FORMAT_VIDEO_maxFramerate,
                        SPA_POD_CHOICE_RANGE_Fraction(&rate, &variable, &rate), 0);
    return static_cast<const spa_pod *>(spa_pod_builder_pop(&builder, &frame));
}

template <class T>
const spa_pod *writeMeta(spa_pod_builder &builder, spa_meta_type type, int count)
{
    const auto size = int(sizeof(T));
    return static_cast<const spa_pod *>(spa_pod_builder_add_object(
        &builder, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta, SPA_PARAM_META_type, SPA_POD_Id(type), SPA_PARAM_META_size,
        SPA_POD_CHOICE_RANGE_Int(size * count, size, size * count)));
}

} // namespace

void writeOffer(const DisplayCaptureConfiguration &configuration, Words &words)
{
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, words.memory.data(), words.memory.size());
    const spa_fraction rate = wantedRate(configuration);
    words.all = {writeFormat(builder, rate, Memory::Ordinary), writeFormat(builder, rate, Memory::Graphics)};
}

void writeWishes(const Agreed &agreed, Words &words)
{
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, words.memory.data(), words.memory.size());
    const int memory = agreed.isGraphicsMemory ? 1 << SPA_DATA_DmaBuf : (1 << SPA_DATA_MemFd) | (1 << SPA_DATA_MemPtr);
    constexpr int mostChanges = 16;
    words.all = {
        static_cast<const spa_pod *>(spa_pod_builder_add_object(
            &builder, SPA_TYPE_OBJECT_ParamBuffers, SPA_PARAM_Buffers, SPA_PARAM_BUFFERS_buffers,
            SPA_POD_CHOICE_RANGE_Int(4, 2, 8), SPA_PARAM_BUFFERS_dataType, SPA_POD_CHOICE_FLAGS_Int(memory))),
        writeMeta<spa_meta_header>(builder, SPA_META_Header, 1),
        writeMeta<spa_meta_region>(builder, SPA_META_VideoCrop, 1),
        writeMeta<spa_meta_region>(builder, SPA_META_VideoDamage, mostChanges),
        writeMeta<spa_meta_videotransform>(builder, SPA_META_VideoTransform, 1),
    };
}

std::optional<Agreed> agreedFormat(const spa_pod *format)
{
    spa_video_info_raw info{};
    uint32_t mediaType = 0;
    uint32_t mediaSubtype = 0;
    if (spa_format_parse(format, &mediaType, &mediaSubtype) < 0 || mediaType != SPA_MEDIA_TYPE_video ||
        mediaSubtype != SPA_MEDIA_SUBTYPE_raw || spa_format_video_raw_parse(format, &info) < 0)
        return std::nullopt;
    const bool redFirst = info.format == SPA_VIDEO_FORMAT_RGBx || info.format == SPA_VIDEO_FORMAT_RGBA;
    const bool blueFirst = info.format == SPA_VIDEO_FORMAT_BGRx || info.format == SPA_VIDEO_FORMAT_BGRA;
    const bool isPossible = info.size.width > 0 && info.size.width <= largest.width && info.size.height > 0 &&
                            info.size.height <= largest.height;
    if (!isPossible || !(redFirst || blueFirst))
        return std::nullopt;
    return Agreed{.size = QSize(int(info.size.width), int(info.size.height)),
                  .redFirst = redFirst,
                  .isGraphicsMemory = spa_pod_find_prop(format, nullptr, SPA_FORMAT_VIDEO_modifier) != nullptr};
}

std::optional<QSize> offeredSize(const spa_pod *format)
{
    const spa_pod_prop *offered =
        format != nullptr ? spa_pod_find_prop(format, nullptr, SPA_FORMAT_VIDEO_size) : nullptr;
    if (offered == nullptr)
        return std::nullopt;
    uint32_t count = 0;
    uint32_t choice = 0;
    const spa_pod *value = spa_pod_get_values(&offered->value, &count, &choice);
    spa_rectangle size{};
    if (choice != SPA_CHOICE_None || count < 1 || spa_pod_get_rectangle(value, &size) < 0)
        return std::nullopt;
    const bool isPossible =
        size.width > 0 && size.height > 0 && size.width <= largest.width && size.height <= largest.height;
    return isPossible ? std::optional(QSize(int(size.width), int(size.height))) : std::nullopt;
}

} // namespace ostrel::PictureFormats
