#pragma once

#include "platform/portal/PipeWireRemote.h"

#include <QRect>
#include <QSize>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <spa/param/video/raw.h>
#include <spa/pod/builder.h>
#include <vector>

namespace ostrel {

/// A compositor's side of a screen cast: a node on the test's PipeWire that shows what the test sends. Main thread.
class TestPictures
{
public:
    enum class Memory { Shared, Graphics };

    struct Look {
        QSize size;
        spa_video_format format = SPA_VIDEO_FORMAT_BGRx;
        Memory memory = Memory::Shared; ///< graphics memory is played by ordinary memory that calls itself so
        int gap = 0;                    ///< bytes behind each row
    };

    /// What goes with a picture.
    struct Telling {
        std::optional<QList<QRect>> changes = {};
        std::optional<QRect> crop = {};
        int transform = 0;
        bool isCorrupted = false;      ///< as the picture's header says
        bool isChunkCorrupted = false; ///< as its memory's description says
        bool isEmpty = false;
        std::uint64_t sequence = 0;
        std::optional<std::int32_t> stride = {}; ///< a false one
    };

    /// @param socket of PipeWire
    TestPictures(const QString &socket, const Look &look);
    TestPictures(const TestPictures &) = delete;
    TestPictures &operator=(const TestPictures &) = delete;
    /// The node goes, as that of a compositor that crashes.
    ~TestPictures();

    quint32 node() const;
    /// Waits until somebody takes the pictures.
    void waitForViewer();
    /// How often somebody has begun to take them.
    int viewings() const { return m_viewings; }
    /// Returns when the viewer has read it.
    /// @param pixels in the look's format, by rows without gaps
    void send(const std::vector<std::uint32_t> &pixels, const Telling &telling);
    /// Pictures have this size from now on.
    void resize(QSize size);

private:
    const spa_pod *writeOffer(spa_pod_builder &builder) const;
    void takeFormat(const spa_pod *format);
    void push();
    void addBuffer(const pw_buffer *buffer);
    void write(const pw_buffer *buffer, const std::vector<std::uint32_t> &pixels, const Telling &telling) const;
    int stride() const { return m_look.size.width() * 4 + m_look.gap; }

    Look m_look;
    std::shared_ptr<PipeWireRemote> m_remote;
    pw_stream *m_stream = nullptr;
    spa_hook m_listener{};
    std::uint32_t m_buffers = 0;
    std::atomic<int> m_viewings = 0;
};

} // namespace ostrel
