#pragma once

#include "base/SerialQueue.h"
#include "capture/DisplaySource.h"

#include <atomic>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <utility>
#include <vector>

namespace ostrel {

/// A picture of one colour that belongs to the test.
class FakePicture
{
public:
    FakePicture(int width, int height) : m_width(width), m_pixels(std::size_t(width) * std::size_t(height) * 4)
    {
        fill(0);
    }

    void fill(std::uint8_t level) { std::fill(m_pixels.begin(), m_pixels.end(), level); }
    std::vector<std::uint8_t> &bytes() { return m_pixels; }

    FrameView view() const
    {
        const std::ptrdiff_t stride = std::ptrdiff_t(m_width) * 4;
        return {.pixels = m_pixels.data(),
                .width = m_width,
                .height = int(std::ptrdiff_t(m_pixels.size()) / stride),
                .stride = stride};
    }

private:
    int m_width;
    std::vector<std::uint8_t> m_pixels;
};

/// A session whose displays show what the test says. A call that the test has no answer for fails it, and so does any
/// call that does not come on the sample queue. Set the answers before the calls begin.
class FakeDisplaySource final : public DisplaySource
{
public:
    /// A stream of the fake; the test is what delivers. It stays known after the recorder has let go of it.
    struct Stream {
        DisplayContentFilter filter;
        DisplayCaptureConfiguration configuration;
        StreamDelegate delegate;
        std::function<void(std::function<void()>)> post;
        bool running = false;
        bool destroyed = false;
        std::atomic<bool> answers{true}; ///< when it is asked whether its way is open
        std::atomic<int> askedAgain = 0; ///< how often its newest picture was wanted once more

        void deliver(const StreamSample &sample) const
        {
            post([call = delegate.didOutputSample, sample] { call(sample); });
        }
        void die(const Error &error) const
        {
            post([call = delegate.didStopWithError, error] { call(error); });
        }
    };

    explicit FakeDisplaySource(SerialQueue &sampleQueue) : m_sampleQueue(sampleQueue) {}
    ~FakeDisplaySource() override { EXPECT_EQ(liveScreenshotters, 0) << "a screenshotter outlived its source"; }

    CaptureMode mode = CaptureMode::Screenshots;
    std::function<Result<ShareableContent>()> onShareableContent;
    std::function<Result<std::optional<FrameView>>(quint32 displayId)> onCapture;
    std::function<void()> onMakeScreenshotter = [] {};
    std::function<bool()> onHaveDisplaysChanged = [] { return false; };
    std::function<void()> onInterruptWaiting = [] {}; ///< on any thread
    bool leavesOut = true;                            ///< private windows
    bool asksUser = false;                            ///< before it lists displays
    bool asksAgain = false;                           ///< before capture that runs could be started anew
    /// Why making the screenshotter or the stream of a display fails; by default none does.
    std::map<quint32, Error> refusedDisplays;
    std::map<quint32, Error> streamsThatDoNotStart;
    bool newStreamsAnswer = true;
    std::function<void(Stream &)> onStreamStarted = [](Stream &) {};

    // What was seen.
    std::vector<std::pair<DisplayContentFilter, DisplayCaptureConfiguration>> screenshotters;
    std::vector<std::shared_ptr<Stream>> streams;
    std::vector<quint32> captures; ///< the display of every picture taken, in order
    int liveScreenshotters = 0;

    /// Displays of that size side by side, the first one the main display.
    void show(std::vector<quint32> displayIds, int width = 64, int height = 36)
    {
        ShareableContent content;
        content.mainDisplayId = displayIds.empty() ? 0 : displayIds.front();
        for (const quint32 id : displayIds) {
            const QRectF bounds(double(content.displays.size()) * width, 0, width, height);
            content.displays.append({.displayId = id, .width = width, .height = height, .bounds = bounds});
        }
        onShareableContent = [content] { return Result<ShareableContent>(content); };
    }

    CaptureMode captureMode() const override { return mode; }

    Result<ShareableContent> shareableContent() override
    {
        checkThread("shareableContent");
        if (onShareableContent)
            return onShareableContent();
        ADD_FAILURE() << "unexpected call of DisplaySource::shareableContent";
        return ShareableContent{};
    }

    bool leavesOutPrivateWindows() const override { return leavesOut; }
    bool wouldAskUser() override { return asksUser; }
    bool wouldAskAgain() override { return asksAgain; }

    void interruptWaiting() override { onInterruptWaiting(); }

    bool haveDisplaysChanged() override
    {
        checkThread("haveDisplaysChanged");
        return onHaveDisplaysChanged();
    }

    Result<std::unique_ptr<DisplayScreenshotter>>
    makeScreenshotter(const DisplayContentFilter &filter, const DisplayCaptureConfiguration &configuration) override
    {
        checkThread("makeScreenshotter");
        EXPECT_EQ(mode, CaptureMode::Screenshots) << "unexpected call of DisplaySource::makeScreenshotter";
        if (const auto refused = refusedDisplays.find(filter.displayId); refused != refusedDisplays.end())
            return std::unexpected(refused->second);
        onMakeScreenshotter();
        screenshotters.emplace_back(filter, configuration);
        return std::make_unique<Screenshotter>(*this, filter.displayId);
    }

    Result<std::unique_ptr<DisplayStream>> makeStream(const DisplayContentFilter &filter,
                                                      const DisplayCaptureConfiguration &configuration,
                                                      StreamDelegate delegate,
                                                      std::function<void(std::function<void()>)> post) override
    {
        checkThread("makeStream");
        EXPECT_EQ(mode, CaptureMode::Streams) << "unexpected call of DisplaySource::makeStream";
        if (const auto refused = refusedDisplays.find(filter.displayId); refused != refusedDisplays.end())
            return std::unexpected(refused->second);
        streams.push_back(std::make_shared<Stream>(filter, configuration, std::move(delegate), std::move(post)));
        streams.back()->answers = newStreamsAnswer;
        return std::make_unique<StreamHandle>(*this, streams.back());
    }

private:
    class Screenshotter final : public DisplayScreenshotter
    {
    public:
        Screenshotter(FakeDisplaySource &source, quint32 displayId) : m_source(source), m_displayId(displayId)
        {
            ++m_source.liveScreenshotters;
        }
        ~Screenshotter() override
        {
            m_source.checkThread("~DisplayScreenshotter");
            --m_source.liveScreenshotters;
        }

        Result<std::optional<FrameView>> capture() override
        {
            m_source.checkThread("capture");
            m_source.captures.push_back(m_displayId);
            if (m_source.onCapture)
                return m_source.onCapture(m_displayId);
            ADD_FAILURE() << "unexpected call of DisplayScreenshotter::capture";
            return std::optional<FrameView>();
        }

    private:
        FakeDisplaySource &m_source;
        const quint32 m_displayId;
    };

    class StreamHandle final : public DisplayStream
    {
    public:
        StreamHandle(FakeDisplaySource &source, std::shared_ptr<Stream> stream)
            : m_source(source), m_stream(std::move(stream))
        {}
        ~StreamHandle() override
        {
            m_source.checkThread("~DisplayStream");
            m_stream->destroyed = true;
        }

        Result<> start() override
        {
            m_source.checkThread("start");
            const auto failure = m_source.streamsThatDoNotStart.find(m_stream->filter.displayId);
            if (failure != m_source.streamsThatDoNotStart.end())
                return std::unexpected(failure->second);
            m_stream->running = true;
            m_source.onStreamStarted(*m_stream);
            return {};
        }
        void stop() override
        {
            m_source.checkThread("stop");
            EXPECT_TRUE(m_stream->running) << "a stream was stopped that did not run";
            m_stream->running = false;
        }

        void deliverAgain() override
        {
            m_source.checkThread("deliverAgain");
            EXPECT_TRUE(m_stream->running) << "a stream that doesn't run was asked for its picture";
            ++m_stream->askedAgain;
        }
        bool isAnswering() override
        {
            m_source.checkThread("isAnswering");
            EXPECT_TRUE(m_stream->running) << "a stream that doesn't run was asked for a sign of life";
            return m_stream->answers;
        }

    private:
        FakeDisplaySource &m_source;
        const std::shared_ptr<Stream> m_stream;
    };

    void checkThread(const char *call) const
    {
        EXPECT_TRUE(m_sampleQueue.isCurrent()) << call << " did not come on the sample queue";
    }

    SerialQueue &m_sampleQueue;
};

} // namespace ostrel
