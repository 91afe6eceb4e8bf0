#include "capture/BatchSubmitter.h"

#include "base/Log.h"
#include "base/SerialQueue.h"
#include "capture/CaptureSources.h"

#include <utility>

namespace ostrel {

BatchSubmitter::BatchSubmitter(SerialQueue &sampleQueue, std::shared_ptr<CaptureSources> sources, Outlets outlets)
    : m_sampleQueue(sampleQueue), m_sources(std::move(sources)), m_outlets(std::move(outlets))
{}

void BatchSubmitter::open(std::shared_ptr<LocalObserverAPI> api)
{
    m_api = std::move(api);
}

Task<bool> BatchSubmitter::flush(std::stop_token stop)
{
    const auto turn = co_await m_turn.acquire(stop);
    const auto api = turn ? m_api : nullptr;
    if (!api)
        co_return true;
    auto batch =
        co_await m_sampleQueue.run(stop, [sources = m_sources] { return sources->gate().takeBufferedFrames(); });
    if (!batch)
        co_return true;
    if (batch->frames.isEmpty()) {
        qCInfo(logScreenCapture, "screen capture flush empty %s", qUtf8Printable(batch->summary));
        co_return true;
    }
    qCInfo(logScreenCapture, "screen capture submitting frames=%lld %s", qint64(batch->frames.size()),
           qUtf8Printable(batch->summary));
    co_return co_await submit(api, std::move(batch->frames), stop);
}

Task<bool> BatchSubmitter::submit(std::shared_ptr<LocalObserverAPI> api, QList<CapturedFramePayload> frames,
                                  std::stop_token stop)
{
    m_framesOnTheirWay = frames.size();
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
