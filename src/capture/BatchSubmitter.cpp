#include "capture/BatchSubmitter.h"

#include "base/Log.h"
#include "base/SerialQueue.h"
#include "capture/CaptureSources.h"

#include <mutex>
#include <utility>

namespace ostrel {

namespace {

/// The way of a batch from the sample queue, which may find its end while nobody waits for it any more.
class TakenOnce
{
public:
    explicit TakenOnce(std::shared_ptr<CaptureSources> sources) : m_sources(std::move(sources)) {}

    void take()
    {
        const std::scoped_lock lock(m_mutex);
        if (!std::exchange(m_isTaken, true))
            m_batch = m_sources->gate().takeBufferedFrames();
    }
    FrameGate::Batch batch()
    {
        take();
        return std::move(m_batch);
    }

private:
    const std::shared_ptr<CaptureSources> m_sources;
    std::mutex m_mutex;
    bool m_isTaken = false;
    FrameGate::Batch m_batch;
};

} // namespace

BatchSubmitter::BatchSubmitter(SerialQueue &sampleQueue, Outlets outlets)
    : m_sampleQueue(sampleQueue), m_outlets(std::move(outlets))
{}

void BatchSubmitter::open(std::shared_ptr<CaptureSources> sources, std::shared_ptr<LocalObserverAPI> api)
{
    m_sources = std::move(sources);
    m_api = std::move(api);
}

/// In turn with all else on the queue, so that what is to be taken back is gone by then.
Task<FrameGate::Batch> BatchSubmitter::take(std::stop_token patience)
{
    const auto taken = std::make_shared<TakenOnce>(m_sources);
    static_cast<void>(co_await m_sampleQueue.run(std::move(patience), [taken] { taken->take(); }));
    co_return taken->batch();
}

Task<bool> BatchSubmitter::flush(std::stop_token stop, std::stop_token patience)
{
    const auto turn = co_await m_turn.acquire(stop);
    const auto api = turn ? m_api : nullptr;
    if (!api)
        co_return true;
    if (stop.stop_requested())
        co_return true;
    auto batch = co_await take(std::move(patience));
    if (batch.frames.isEmpty()) {
        qCInfo(logScreenCapture, "screen capture flush empty %s", qUtf8Printable(batch.summary));
        co_return true;
    }
    qCInfo(logScreenCapture, "screen capture submitting frames=%lld %s", qint64(batch.frames.size()),
           qUtf8Printable(batch.summary));
    m_framesOnTheirWay = batch.frames.size();
    if (stop.stop_requested())
        co_return true;
    co_return co_await submit(api, std::move(batch.frames), stop);
}

Task<bool> BatchSubmitter::submit(std::shared_ptr<LocalObserverAPI> api, QList<CapturedFramePayload> frames,
                                  std::stop_token stop)
{
    const auto answer = co_await api->submitFrames(std::move(frames), stop);
    if (stop.stop_requested())
        co_return true;
    m_framesOnTheirWay = 0;
    if (answer) {
        m_outlets.publishStatus(*answer);
        co_return true;
    }
    // Whoever waits for its turn finds no recording any more, and posts nothing after the failed batch.
    m_api.reset();
    m_outlets.publishError(answer.error().localizedDescription);
    // Its answer doesn't matter. Waited for within our turn, so that it can't meet the next recording's start.
    static_cast<void>(co_await api->stopRecording(stop));
    co_return false;
}

Task<> BatchSubmitter::settled(std::stop_token stop)
{
    static_cast<void>(co_await m_turn.acquire(stop));
}

} // namespace ostrel
