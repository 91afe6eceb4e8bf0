#pragma once

#include "base/Task.h"
#include "context/ActiveDisplay.h"

#include <QList>
#include <memory>
#include <stop_token>

namespace ostrel {

class ActiveApplicationContext;
class CaptureSources;
class Clock;
class SerialQueue;

/// What the sampler needs; the references outlive it.
struct ForegroundSampling {
    Clock &clock;
    ActiveApplicationContext &context;
    SerialQueue &contextQueue;
    SerialQueue &sampleQueue;
    std::shared_ptr<CaptureSources> sources;
    QList<ActiveDisplayCandidate> displays;
};

/// Keeps what frames carry with them fresh: reads the foreground application and the active display on the context
/// queue, at once and then 500 ms after each answer, until it is stopped; then the context hears that no more samples
/// follow. Main thread; samples never overlap.
Task<> sampleForegroundApp(ForegroundSampling sampling, std::stop_token stop);

} // namespace ostrel
