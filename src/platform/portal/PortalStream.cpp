#include "platform/portal/PortalStream.h"

#include "base/Fault.h"
#include "base/Log.h"
#include "platform/portal/PortalCast.h"

#include <algorithm>
#include <utility>

namespace ostrel {

namespace {

timespec asTimespec(std::chrono::milliseconds time)
{
    // Zero would switch a timer off.
    const auto nanoseconds = std::max<std::chrono::nanoseconds>(time, std::chrono::nanoseconds(1));
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(nanoseconds);
    return {.tv_sec = seconds.count(), .tv_nsec = (nanoseconds - seconds).count()};
}

spa_source *makeTimer(pw_loop *loop, spa_source_timer_func_t call, void *self)
{
    return pw_loop_add_timer(loop, call, self);
}

void setTimer(pw_loop *loop, spa_source *timer, std::chrono::milliseconds delay)
{
    timespec time = asTimespec(delay);
    pw_loop_update_timer(loop, timer, &time, nullptr, false);
}

std::chrono::milliseconds intervalOf(const DisplayCaptureConfiguration &configuration)
{
    return std::chrono::milliseconds(configuration.minimumFrameInterval600 * 1000 / 600);
}

QString textOf(const char *error)
{
    return error != nullptr ? QString::fromUtf8(error) : QStringLiteral("it has ended them");
}

} // namespace

PortalStream::PortalStream(std::shared_ptr<PortalCast> cast, PortalDisplay display,
                           const DisplayCaptureConfiguration &configuration, DisplaySource::StreamDelegate delegate,
                           PictureFeed::Post post, const PortalSeams &seams, Use use,
                           std::shared_ptr<PictureCover> cover)
    : m_cast(std::move(cast)), m_remote(m_cast->remote()), m_display(std::move(display)),
      m_configuration(configuration), m_seams(seams),
      m_feed(std::make_shared<PictureFeed>(QSize(int(configuration.width), int(configuration.height)), m_display.name,
                                           std::move(delegate), std::move(post), pace(), std::move(cover))),
      m_use(std::move(use))
{}

PortalStream::~PortalStream()
{
    stop();
}

PictureFeed::Pace PortalStream::pace()
{
    return {.interval = intervalOf(m_configuration),
            .monotonicTime = m_seams.monotonicTime,
            .wakeAfter = [this](std::chrono::milliseconds delay) { setTimer(m_remote.loop(), m_paceTimer, delay); }};
}

Result<> PortalStream::start()
{
    const PipeWireRemote::Lock lock(m_remote);
    if (const auto connected = connect(); !connected)
        return connected;
    if (const auto agreed = waitForFormat(); !agreed)
        return agreed;
    m_isStarted = true;
    setTimer(m_remote.loop(), m_firstPictureTimer, m_seams.firstPictureAfter);
    setTimer(m_remote.loop(), m_blackPlacesTimer, m_seams.lookAtBlackEvery);
    return {};
}

Result<> PortalStream::connect()
{
    static const pw_stream_events events = [] {
        pw_stream_events table{};
        table.version = PW_VERSION_STREAM_EVENTS;
        table.state_changed = [](void *self, pw_stream_state, pw_stream_state state, const char *error) {
            static_cast<PortalStream *>(self)->takeState(state, error);
        };
        table.param_changed = [](void *self, uint32_t id, const spa_pod *param) {
            if (id == SPA_PARAM_Format)
                static_cast<PortalStream *>(self)->takeFormat(param);
        };
        table.add_buffer = [](void *self, pw_buffer *buffer) {
            static_cast<PortalStream *>(self)->m_memory[buffer] = MappedMemory::map(buffer->buffer->datas[0]);
        };
        table.remove_buffer = [](void *self, pw_buffer *buffer) {
            static_cast<PortalStream *>(self)->removeBuffer(buffer);
        };
        table.process = [](void *self) { static_cast<PortalStream *>(self)->takeBuffers(); };
        return table;
    }();
    m_paceTimer = makeTimer(
        m_remote.loop(), [](void *self, uint64_t) { static_cast<PortalStream *>(self)->deliverWhenDue(); }, this);
    m_firstPictureTimer = makeTimer(
        m_remote.loop(), [](void *self, uint64_t) { static_cast<PortalStream *>(self)->missFirstPicture(); }, this);
    m_blackPlacesTimer = makeTimer(
        m_remote.loop(), [](void *self, uint64_t) { static_cast<PortalStream *>(self)->lookAtBlackPlaces(); }, this);
    m_stream = pw_stream_new(m_remote.core(), "ostrel",
                             pw_properties_new(PW_KEY_MEDIA_TYPE, "Video", PW_KEY_MEDIA_CATEGORY, "Capture",
                                               PW_KEY_MEDIA_ROLE, "Screen", nullptr));
    if (m_stream == nullptr)
        return std::unexpected(faultError(Fault::PictureRefused, QStringLiteral("PipeWire made no stream")));
    pw_stream_add_listener(m_stream, &m_listener, &events, this);
    PictureFormats::Words offer;
    PictureFormats::writeOffer(m_configuration, offer);
    // PipeWire's flags are enumerations. NOLINTNEXTLINE(clang-analyzer-optin.core.EnumCastOutOfRange)
    constexpr auto flags = pw_stream_flags(PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_DONT_RECONNECT);
    if (pw_stream_connect(m_stream, PW_DIRECTION_INPUT, m_display.node, flags, offer.all.data(),
                          uint32_t(offer.all.size())) < 0)
        return std::unexpected(faultError(Fault::PictureRefused, QStringLiteral("PipeWire connects no stream")));
    return {};
}

Result<> PortalStream::waitForFormat()
{
    const bool hasWord =
        m_remote.waitUntil([this] { return m_format || m_failure || m_remote.isBroken(); }, m_seams.patience);
    if (m_failure)
        return std::unexpected(*m_failure);
    if (m_remote.isBroken())
        return std::unexpected(faultError(Fault::PictureStreamEnded, QStringLiteral("PipeWire can't be reached")));
    if (!hasWord)
        return std::unexpected(faultError(Fault::TimedOut, QStringLiteral("stream of pictures")));
    return {};
}

void PortalStream::missFirstPicture()
{
    if (m_feed->hasTaken())
        return;
    qCWarning(logPlatform, "display \"%s\" waits for its first picture: it comes when the screen changes",
              qUtf8Printable(m_display.name));
    // One that was sent while we were still starting may have got lost.
    askForPicture();
}

void PortalStream::lookAtBlackPlaces()
{
    if (m_feed->wantsFresherPicture())
        askForPicture();
    setTimer(m_remote.loop(), m_blackPlacesTimer, m_seams.lookAtBlackEvery);
}

void PortalStream::askForPicture()
{
    // Compositors send one to whom they start anew. What they tell of changes may leave out those of the pause.
    m_feed->miss();
    pw_stream_set_active(m_stream, false);
    pw_stream_set_active(m_stream, true);
}

void PortalStream::stop()
{
    m_feed->close();
    if (!m_cast)
        return;
    disconnect();
    // In this order: who lends it looks whether the cast is still held by somebody.
    m_cast.reset();
    m_use.reset();
}

void PortalStream::deliverAgain()
{
    // For its timer.
    const PipeWireRemote::Lock lock(m_remote);
    m_feed->deliverAgain();
    giveBackUnlessHeld();
}

bool PortalStream::isAnswering()
{
    const bool isCompositorAnswering = m_seams.isCompositorAnswering();
    const PipeWireRemote::Lock lock(m_remote);
    const bool isAnswered = !m_question || m_remote.isAnswered(*m_question);
    if (isAnswered)
        m_question = m_remote.ask();
    return isAnswered && isCompositorAnswering;
}

void PortalStream::disconnect()
{
    const PipeWireRemote::Lock lock(m_remote);
    if (m_stream != nullptr) {
        spa_hook_remove(&m_listener);
        pw_stream_destroy(std::exchange(m_stream, nullptr));
    }
    for (spa_source **timer : {&m_paceTimer, &m_firstPictureTimer, &m_blackPlacesTimer}) {
        if (*timer != nullptr)
            pw_loop_destroy_source(m_remote.loop(), std::exchange(*timer, nullptr));
    }
    m_held = nullptr;
    m_memory.clear();
}

void PortalStream::takeState(pw_stream_state state, const char *error)
{
    if (state == PW_STREAM_STATE_ERROR || state == PW_STREAM_STATE_UNCONNECTED)
        end(faultError(m_isStarted ? Fault::PictureStreamEnded : Fault::PictureRefused, textOf(error)));
}

void PortalStream::end(const Error &error)
{
    m_cast->noteLost();
    if (m_isStarted)
        m_feed->fail(error);
    else if (!m_failure)
        m_failure = error;
    m_remote.wake();
}

void PortalStream::takeFormat(const spa_pod *format)
{
    if (format == nullptr)
        return; // taken back; another one follows, or the end
    const auto before = std::exchange(m_format, PictureFormats::agreedFormat(format));
    if (!m_format)
        return end(faultError(Fault::ScreenFormatUnsupported, QStringLiteral("none that was asked for")));
    if (before && before->size != m_format->size)
        m_feed->fail(faultError(Fault::DisplayResized, m_display.name));
    PictureFormats::Words wishes;
    PictureFormats::writeWishes(*m_format, wishes);
    pw_stream_update_params(m_stream, wishes.all.data(), uint32_t(wishes.all.size()));
    m_remote.wake();
}

void PortalStream::takeBuffers()
{
    while (pw_buffer *buffer = pw_stream_dequeue_buffer(m_stream))
        takeBuffer(buffer);
}

void PortalStream::deliverWhenDue()
{
    m_feed->deliverWhenDue();
    giveBackUnlessHeld();
}

void PortalStream::giveBack(pw_buffer *buffer)
{
    if (buffer != nullptr)
        pw_stream_queue_buffer(m_stream, buffer);
}

void PortalStream::giveBackUnlessHeld()
{
    // With fewer the producer might have none left for what it draws next.
    constexpr std::size_t fewestToHoldOne = 4;
    const auto held = m_memory.find(m_held);
    const bool mayBeHeld = m_memory.size() >= fewestToHoldOne && held != m_memory.end() && held->second != nullptr &&
                           held->second->keepsItsLength();
    if (m_held != nullptr && !mayBeHeld)
        m_feed->letGo();
    if (!m_feed->isHolding())
        giveBack(std::exchange(m_held, nullptr));
}

void PortalStream::removeBuffer(pw_buffer *buffer)
{
    if (m_held == buffer) {
        m_feed->letGo();
        m_held = nullptr;
    }
    m_memory.erase(buffer);
}

void PortalStream::takeBuffer(pw_buffer *buffer)
{
    const spa_data &data = buffer->buffer->datas[0];
    const auto mapped = m_memory.find(buffer);
    const MappedMemory *memory = mapped == m_memory.end() ? nullptr : mapped->second.get();
    const bool isThereAlready = data.type == SPA_DATA_MemPtr;
    const auto *bytes =
        memory != nullptr ? memory->bytes() : (isThereAlready ? static_cast<const std::uint8_t *>(data.data) : nullptr);
    auto reading = m_format ? readBuffer(*buffer->buffer, *m_format, bytes) : std::nullopt;
    if (!reading) {
        m_feed->miss();
        return giveBack(buffer);
    }
    // A picture that never got here has taken what it said of changes with it.
    if (reading->sequence && m_sequence && *reading->sequence > *m_sequence + 1)
        m_feed->miss();
    m_sequence = reading->sequence;
    reading->picture.memory = memory;
    m_feed->take(reading->picture);
    giveBack(std::exchange(m_held, buffer));
    giveBackUnlessHeld();
}

} // namespace ostrel
