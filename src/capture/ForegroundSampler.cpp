#include "capture/ForegroundSampler.h"

#include "base/Clock.h"
#include "base/SerialQueue.h"
#include "capture/CaptureSources.h"
#include "context/ActiveApplicationContext.h"

#include <chrono>

namespace ostrel {

using namespace std::chrono_literals;

Task<> sampleForegroundApp(ForegroundSampling sampling, std::stop_token stop)
{
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
