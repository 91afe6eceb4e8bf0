#include "DesktopScene.h"
#include "ProcessUsage.h"
#include "VirtualScreen.h"
#include "platform/x11/base/X11Connection.h"
#include "platform/x11/capture/X11Grabber.h"

#include <benchmark/benchmark.h>

using namespace ostrel;

namespace {

using MakeGrabber = std::unique_ptr<X11Grabber> (*)(const std::shared_ptr<X11Connection> &, QSize);

/// Reports the processor time of both sides: over the wire most of the work is the server's.
void grab(benchmark::State &state, MakeGrabber make)
{
    const QSize size(int(state.range(0)), int(state.range(1)));
    VirtualScreen screen(size);
    DesktopScene scene(screen.display(), size);
    const std::shared_ptr<X11Connection> connection = std::move(*X11Connection::open(screen.display()));
    const auto grabber = make(connection, size);
    const auto once = [&grabber, size] {
        grabber->request({0, 0}, {{RowRange{0, size.height()}}});
        benchmark::DoNotOptimize(grabber->collect());
    };
    once(); // the first one pays for the memory
    for (auto _ : state) {
        const double serverBefore = cpuMsOf(screen.pid());
        const double clientBefore = ownCpuMs();
        once();
        const double clientMs = ownCpuMs() - clientBefore;
        state.SetIterationTime((clientMs + cpuMsOf(screen.pid()) - serverBefore) / 1e3);
    }
}

void grabSharedMemory(benchmark::State &state)
{
    grab(state, [](const std::shared_ptr<X11Connection> &connection, QSize size) {
        return makeSharedMemoryGrabber(connection, size, {});
    });
}
void grabOverTheWire(benchmark::State &state)
{
    grab(state, [](const std::shared_ptr<X11Connection> &connection, QSize size) {
        return makeWireGrabber(connection, size, {});
    });
}

void screenSizes(benchmark::internal::Benchmark *bench)
{
    bench->Args({1920, 1080})->Args({3840, 2160})->UseManualTime()->Unit(benchmark::kMillisecond);
}

BENCHMARK(grabSharedMemory)->Apply(screenSizes);
BENCHMARK(grabOverTheWire)->Apply(screenSizes);

} // namespace
