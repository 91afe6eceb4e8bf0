#pragma once

#include "capture/DisplaySource.h"
#include "platform/portal/PictureBuffer.h"
#include "platform/portal/PictureFeed.h"
#include "platform/portal/PictureFormats.h"
#include "platform/portal/PipeWireRemote.h"
#include "platform/portal/PortalDisplays.h"
#include "platform/portal/PortalSeams.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <unordered_map>

namespace ostrel {

class PortalCast;

/// The pictures of one display, as the compositor sends them. A screen that does not change sends none.
class PortalStream final : public DisplayStream
{
public:
    /// What somebody lends to the stream for as long as it runs.
    using Use = std::shared_ptr<void>;

    /// @param cover may be null: then private windows are in the pictures
    PortalStream(std::shared_ptr<PortalCast> cast, PortalDisplay display,
                 const DisplayCaptureConfiguration &configuration, DisplaySource::StreamDelegate delegate,
                 PictureFeed::Post post, const PortalSeams &seams, Use use, std::shared_ptr<PictureCover> cover);
    ~PortalStream() override;

    /// Waits until the form of the pictures is agreed on.
    /// @return Fault::PictureRefused, TimedOut, ScreenFormatUnsupported, PictureStreamEnded
    Result<> start() override;
    void stop() override;
    void deliverAgain() override;
    /// PipeWire's answer and the compositor's: one that hangs sends as little as a screen that stays still.
    bool isAnswering() override;

private:
    // All of these on the thread of PipeWire's events.
    void takeState(pw_stream_state state, const char *error);
    void takeFormat(const spa_pod *format);
    void takeBuffers();
    void takeBuffer(pw_buffer *buffer);
    void giveBack(pw_buffer *buffer);
    void giveBackUnlessHeld();
    void removeBuffer(pw_buffer *buffer);
    void deliverWhenDue();
    void missFirstPicture();
    void lookAtBlackPlaces();
    void askForPicture();
    void end(const Error &error);

    Result<> connect();
    Result<> waitForFormat();
    void disconnect();
    PictureFeed::Pace pace();

    std::shared_ptr<PortalCast> m_cast; ///< until the stream has stopped
    PipeWireRemote &m_remote;           ///< of the cast
    const PortalDisplay m_display;
    const DisplayCaptureConfiguration m_configuration;
    const PortalSeams m_seams;
    const std::shared_ptr<PictureFeed> m_feed;
    Use m_use;

    // With a lock of the remote held.
    pw_stream *m_stream = nullptr;
    spa_hook m_listener{};
    spa_source *m_paceTimer = nullptr;
    spa_source *m_firstPictureTimer = nullptr;
    spa_source *m_blackPlacesTimer = nullptr;
    std::optional<PictureFormats::Agreed> m_format;
    std::unordered_map<const pw_buffer *, std::unique_ptr<MappedMemory>> m_memory;
    pw_buffer *m_held = nullptr;             ///< the one whose picture was taken last, while the feed holds it
    std::optional<std::uint64_t> m_sequence; ///< of the picture taken last
    std::optional<Error> m_failure;
    std::optional<int> m_question; ///< the one that was put to PipeWire last
    bool m_isStarted = false;
};

} // namespace ostrel
