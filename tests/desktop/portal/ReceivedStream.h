#pragma once

#include "base/SerialQueue.h"
#include "capture/DisplaySource.h"
#include "support/TestProcess.h"
#include "support/WaylandPicture.h"

#include <QStringList>

#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

namespace ostrel {

/// A stream that runs, and all that it has delivered so far. Everything of it happens on the queue.
class ReceivedStream
{
public:
    struct Picture {
        WaylandPicture pixels;
        std::optional<std::vector<RowRange>> changedRows;
    };

    /// @param framesPerSecond at the most
    ReceivedStream(SerialQueue &queue, DisplaySource &source, const CapturableDisplay &display,
                   int framesPerSecond = 30)
        : m_queue(queue)
    {
        m_started = m_queue.sync([&]() -> Result<> {
            auto stream = source.makeStream(
                {.displayId = display.displayId, .mode = {}},
                {.width = display.width, .height = display.height, .minimumFrameInterval600 = 600 / framesPerSecond},
                {.didOutputSample = [this](const StreamSample &sample) { take(sample); },
                 .didStopWithError = [this](const Error &error) { take(error); }},
                [&queue](auto job) { queue.post(std::move(job)); });
            if (!stream)
                return std::unexpected(stream.error());
            m_stream = *std::move(stream);
            return m_stream->start();
        });
    }
    ReceivedStream(const ReceivedStream &) = delete;
    ReceivedStream &operator=(const ReceivedStream &) = delete;
    ~ReceivedStream()
    {
        m_queue.sync([this] { m_stream.reset(); });
    }

    const Result<> &started() const { return m_started; }
    void stop()
    {
        m_queue.sync([this] { m_stream->stop(); });
    }

    void deliverAgain()
    {
        m_queue.sync([this] { m_stream->deliverAgain(); });
    }
    bool isAnswering()
    {
        return m_queue.sync([this] { return m_stream->isAnswering(); });
    }

    std::size_t count() const
    {
        const std::scoped_lock lock(m_mutex);
        return m_pictures.size();
    }
    /// Deliveries without a picture.
    int withheld() const
    {
        const std::scoped_lock lock(m_mutex);
        return m_withheld;
    }
    Picture picture(std::size_t index) const
    {
        const std::scoped_lock lock(m_mutex);
        return m_pictures.at(index);
    }
    Picture last() const
    {
        const std::scoped_lock lock(m_mutex);
        return m_pictures.back();
    }
    std::vector<Error> errors() const
    {
        const std::scoped_lock lock(m_mutex);
        return m_errors;
    }

    /// Programs draw when they like.
    void waitForPicture(const WaylandPicture &picture) const
    {
        waitUntil(QStringLiteral("the picture"), std::chrono::seconds(20),
                  [&] { return count() > 0 && last().pixels == picture; });
    }
    Error waitForEnd() const
    {
        waitUntil(QStringLiteral("the stream's end"), std::chrono::seconds(20), [this] { return !errors().empty(); });
        return errors().front();
    }

private:
    void take(const StreamSample &sample)
    {
        const std::scoped_lock lock(m_mutex);
        if (!sample.image) {
            ++m_withheld;
            return;
        }
        Picture picture{.pixels = WaylandPicture::of(*sample.image), .changedRows = {}};
        if (const auto &rows = sample.image->changedRows)
            picture.changedRows.emplace(rows->begin(), rows->end());
        m_pictures.push_back(std::move(picture));
    }
    void take(const Error &error)
    {
        const std::scoped_lock lock(m_mutex);
        m_errors.push_back(error);
    }

    SerialQueue &m_queue;
    std::unique_ptr<DisplayStream> m_stream;
    Result<> m_started;
    mutable std::mutex m_mutex;
    std::vector<Picture> m_pictures;
    int m_withheld = 0;
    std::vector<Error> m_errors;
};

} // namespace ostrel
