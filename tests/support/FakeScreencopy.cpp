#include "support/FakeScreencopy.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

namespace ostrel {

namespace {

using Answer = FakeCompositor::Answer;
using Memory = FakeCompositor::Memory;

constexpr int screencopyVersion = 3;
constexpr std::uint32_t bytesPerPixel = 4;

void destroyResource(wl_client * /*client*/, wl_resource *resource)
{
    wl_resource_destroy(resource);
}

/// The colour as a pixel of that format.
std::uint32_t pixelOf(std::uint32_t colour, std::uint32_t format)
{
    const bool isRedFirst = format == WL_SHM_FORMAT_XBGR8888;
    return isRedFirst ? (colour >> 16 & 0xff) | (colour & 0xff00) | (colour & 0xff) << 16 : colour;
}

} // namespace

/// What a client has bound; changes are counted for each apart.
struct FakeScreencopy::Manager {
    FakeScreencopy *owner = nullptr;
    std::map<int, int> seenRevisions = {};
};

/// A request for one picture.
struct FakeScreencopy::Frame {
    FakeScreencopy *owner = nullptr;
    std::shared_ptr<Manager> manager;
    wl_resource *resource = nullptr;
    int output = 0;
    Memory wanted = {};
    wl_resource *buffer = nullptr; ///< once there is one
    bool isOver = false;
    bool waitsForChange = false;

    Screen &screen() const { return owner->m_screens.at(output); }
    int &seenRevision() const { return manager->seenRevisions[output]; }

    struct BufferGone {
        wl_listener listener;
        Frame *frame;
    } bufferGone{{.link = {}, .notify = &forgetBuffer}, this};

    void keep(wl_resource *memory)
    {
        buffer = memory;
        wl_resource_add_destroy_listener(memory, &bufferGone.listener);
    }
    void letGo()
    {
        if (std::exchange(buffer, nullptr))
            wl_list_remove(&bufferGone.listener.link);
    }
    /// The listener is the first thing in what it belongs to.
    static void forgetBuffer(wl_listener *listener, void * /*buffer*/)
    {
        reinterpret_cast<BufferGone *>(listener)->frame->letGo();
    }
};

FakeScreencopy::FakeScreencopy(wl_display *display, std::function<int(wl_resource *)> numberOf)
    : m_numberOf(std::move(numberOf))
{
    wl_global_create(display, &zwlr_screencopy_manager_v1_interface, screencopyVersion, this, &FakeScreencopy::bind);
}

FakeScreencopy::~FakeScreencopy() = default;

void FakeScreencopy::bind(wl_client *client, void *self, std::uint32_t version, std::uint32_t id)
{
    static const struct zwlr_screencopy_manager_v1_interface requests{
        .capture_output = &FakeScreencopy::capture,
        .capture_output_region = [](wl_client *, wl_resource *, std::uint32_t, std::int32_t, wl_resource *,
                                    std::int32_t, std::int32_t, std::int32_t,
                                    std::int32_t) { ADD_FAILURE() << "asked for a part of an output"; },
        .destroy = &destroyResource,
    };
    wl_resource *resource = wl_resource_create(client, &zwlr_screencopy_manager_v1_interface, int(version), id);
    auto *manager =
        new std::shared_ptr(std::make_shared<Manager>(Manager{.owner = static_cast<FakeScreencopy *>(self)}));
    wl_resource_set_implementation(resource, &requests, manager, [](wl_resource *gone) {
        delete static_cast<std::shared_ptr<Manager> *>(wl_resource_get_user_data(gone));
    });
}

void FakeScreencopy::capture(wl_client *client, wl_resource *manager, std::uint32_t id, int withCursor,
                             wl_resource *output)
{
    static const struct zwlr_screencopy_frame_v1_interface requests{
        .copy = [](wl_client *, wl_resource *frame, wl_resource *buffer) { copy(frame, buffer, false); },
        .destroy = &destroyResource,
        .copy_with_damage = [](wl_client *, wl_resource *frame, wl_resource *buffer) { copy(frame, buffer, true); },
    };
    EXPECT_EQ(withCursor, 1);
    const auto &known = *static_cast<std::shared_ptr<Manager> *>(wl_resource_get_user_data(manager));
    auto frame = std::make_unique<Frame>();
    frame->owner = known->owner;
    frame->manager = known;
    frame->output = known->owner->m_numberOf(output);
    frame->resource =
        wl_resource_create(client, &zwlr_screencopy_frame_v1_interface, wl_resource_get_version(manager), id);
    wl_resource_set_implementation(frame->resource, &requests, frame.get(), [](wl_resource *gone) {
        auto *ended = static_cast<Frame *>(wl_resource_get_user_data(gone));
        ended->letGo();
        std::erase_if(ended->owner->m_frames, [ended](const auto &each) { return each.get() == ended; });
    });
    known->owner->m_frames.push_back(std::move(frame));
    known->owner->describe(*known->owner->m_frames.back());
}

void FakeScreencopy::describe(Frame &frame)
{
    const Screen &screen = frame.screen();
    const Answer answer = screen.behaviour.answer;
    if (answer == Answer::Silence)
        return;
    if (answer == Answer::Refused || !screen.isThere) {
        refuse(frame);
        return;
    }
    frame.wanted = memoryOf(screen);
    if (answer != Answer::NoMemory)
        zwlr_screencopy_frame_v1_send_buffer(frame.resource, frame.wanted.format, frame.wanted.width,
                                             frame.wanted.height, frame.wanted.stride);
    if (answer == Answer::ReadyTooEarly)
        zwlr_screencopy_frame_v1_send_ready(frame.resource, 0, 0, 0);
    zwlr_screencopy_frame_v1_send_buffer_done(frame.resource);
    if (answer == Answer::RefusedLate)
        refuse(frame);
}

void FakeScreencopy::copy(wl_resource *resource, wl_resource *buffer, bool whenChanged)
{
    Frame &frame = *static_cast<Frame *>(wl_resource_get_user_data(resource));
    EXPECT_FALSE(frame.isOver) << "a frame that is over was asked for";
    EXPECT_FALSE(frame.buffer) << "a second copy of one frame";
    EXPECT_NE(frame.wanted.stride, 0U) << "a copy before there was word of the memory";
    if (frame.isOver || frame.buffer)
        return;
    frame.keep(buffer);
    FakeScreencopy &owner = *frame.owner;
    if (const auto happens = std::exchange(owner.m_atNextCopy, nullptr))
        happens();
    if (frame.isOver)
        return;
    frame.waitsForChange = whenChanged && frame.seenRevision() == frame.screen().revision;
    if (!frame.waitsForChange)
        owner.answer(frame);
}

void FakeScreencopy::answer(Frame &frame)
{
    const Screen &screen = frame.screen();
    if (screen.behaviour.answer == Answer::SilentCopy)
        return;
    if (!screen.isThere || screen.behaviour.answer == Answer::RefusedCopy)
        refuse(frame);
    else
        write(frame);
}

void FakeScreencopy::write(Frame &frame)
{
    if (!isWanted(frame))
        return;
    wl_shm_buffer *memory = wl_shm_buffer_get(frame.buffer);
    wl_shm_buffer_begin_access(memory);
    const std::uint32_t pixel = pixelOf(frame.screen().colour, frame.wanted.format);
    for (std::uint32_t y = 0; y < frame.wanted.height; ++y) {
        auto *row = static_cast<std::uint8_t *>(wl_shm_buffer_get_data(memory)) + std::size_t(y) * frame.wanted.stride;
        std::fill_n(reinterpret_cast<std::uint32_t *>(row), frame.wanted.width, pixel);
    }
    wl_shm_buffer_end_access(memory);
    frame.isOver = true;
    frame.seenRevision() = frame.screen().revision;
    ++frame.screen().pictures;
    zwlr_screencopy_frame_v1_send_flags(frame.resource, 0);
    if (frame.waitsForChange)
        zwlr_screencopy_frame_v1_send_damage(frame.resource, 0, 0, frame.wanted.width, frame.wanted.height);
    zwlr_screencopy_frame_v1_send_ready(frame.resource, 0, 0, 0);
}

bool FakeScreencopy::isWanted(const Frame &frame) const
{
    wl_shm_buffer *memory = frame.buffer ? wl_shm_buffer_get(frame.buffer) : nullptr;
    EXPECT_TRUE(memory) << "memory that can't be shared, or that was taken back";
    if (!memory)
        return false;
    const bool isAsTold = wl_shm_buffer_get_format(memory) == frame.wanted.format &&
                          wl_shm_buffer_get_width(memory) == int(frame.wanted.width) &&
                          wl_shm_buffer_get_height(memory) == int(frame.wanted.height) &&
                          wl_shm_buffer_get_stride(memory) == int(frame.wanted.stride);
    EXPECT_TRUE(isAsTold) << "other memory than was wanted";
    return isAsTold;
}

void FakeScreencopy::refuse(Frame &frame)
{
    frame.isOver = true;
    zwlr_screencopy_frame_v1_send_failed(frame.resource);
}

Memory FakeScreencopy::memoryOf(const Screen &screen) const
{
    return screen.behaviour.memory.value_or(Memory{.format = WL_SHM_FORMAT_XRGB8888,
                                                   .width = std::uint32_t(screen.mode.width()),
                                                   .height = std::uint32_t(screen.mode.height()),
                                                   .stride = std::uint32_t(screen.mode.width()) * bytesPerPixel});
}

void FakeScreencopy::showOutput(int output, QSize mode, std::uint32_t colour)
{
    m_screens[output] = {.mode = mode, .colour = colour};
}

void FakeScreencopy::endOutput(int output)
{
    m_screens.at(output).isThere = false;
    for (const auto &frame : m_frames) {
        const bool isUnderWay = frame->output == output && frame->buffer && !frame->isOver;
        if (isUnderWay && frame->screen().behaviour.answer != Answer::SilentCopy)
            refuse(*frame);
    }
}

void FakeScreencopy::resizeOutput(int output, QSize mode)
{
    m_screens.at(output).mode = mode;
}

void FakeScreencopy::behave(int output, const Behaviour &behaviour)
{
    m_screens.at(output).behaviour = behaviour;
}

void FakeScreencopy::paint(int output, std::uint32_t colour)
{
    Screen &screen = m_screens.at(output);
    screen.colour = colour;
    ++screen.revision;
    for (const auto &frame : m_frames) {
        if (frame->output == output && frame->waitsForChange && !frame->isOver)
            answer(*frame);
    }
}

} // namespace ostrel
