#include "capture/ForegroundSampler.h"

#include "base/Clock.h"
#include "base/SerialQueue.h"
#include "capture/CaptureSources.h"
#include "context/ActiveApplicationContext.h"

#include <chrono>

namespace ostrel {

using namespace std::chrono_literals;

namespace {

/// However sampling ends, also in the middle of a wait.
class EndOfSampling
{
public:
    explicit EndOfSampling(const ForegroundSampling &sampling)
        : m_queue(sampling.contextQueue), m_context(sampling.context)
    {}
    EndOfSampling(const EndOfSampling &) = delete;
    EndOfSampling &operator=(const EndOfSampling &) = delete;
    ~EndOfSampling()
    {
        m_queue.post([&context = m_context] { context.endSampling(); });
    }

private:
    SerialQueue &m_queue;
    ActiveApplicationContext &m_context;
};

} // namespace

Task<> sampleForegroundApp(ForegroundSampling sampling, std::stop_token stop)
{
    const EndOfSampling end(sampling);
    do {
        const qint64 beganMs = sampling.clock.nowMs();
        const auto sample =
            co_await sampling.contextQueue.run(stop, [&context = sampling.context, displays = sampling.displays] {
                return context.currentRecordingContext(displays);
            });
        if (!sample)
            co_return;
        sampling.sources->announceRecordingContext(*sample, beganMs);
        sampling.sampleQueue.post(
            [sources = sampling.sources, sample = *sample, beganMs] { sources->setRecordingContext(sample, beganMs); });
    } while (co_await sampling.clock.sleepFor(500ms, stop));
}

} // namespace ostrel
