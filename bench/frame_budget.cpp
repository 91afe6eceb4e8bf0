#include "DesktopScene.h"
#include "ProcessUsage.h"
#include "VirtualScreen.h"
#include "base/Clock.h"
#include "capture/CaptureConfiguration.h"
#include "capture/FrameGate.h"
#include "platform/x11/capture/X11DisplaySource.h"

#include <QCoreApplication>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>
#include <unistd.h>
#include <vector>

/// What a frame costs on its way from the screen to the buffer, by the real parts on a real X server: processor time
/// of this process and of the server together, in terms of a cold copy of the frame in memory.

using namespace ostrel;

namespace {

constexpr int rounds = 41;
/// Between frames, so that nothing is in the caches but what a real recording would find there.
constexpr auto pause = std::chrono::milliseconds(100);

double median(std::vector<double> values)
{
    const auto middle = values.begin() + std::ptrdiff_t(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/// Copies between buffers that together are larger than the caches.
class ColdCopy
{
public:
    explicit ColdCopy(std::size_t bytes)
    {
        constexpr std::size_t atLeastBytes = 256'000'000;
        const std::size_t count = std::max<std::size_t>(4, atLeastBytes / bytes) / 2 * 2;
        for (std::size_t i = 0; i < count; ++i)
            m_buffers.emplace_back(bytes, std::uint8_t(i));
    }

    double measureMs()
    {
        auto &from = m_buffers[m_next++ % m_buffers.size()];
        auto &to = m_buffers[m_next++ % m_buffers.size()];
        const double before = ownCpuMs();
        std::memcpy(to.data(), from.data(), from.size());
        __asm__ volatile("" ::"r"(to.data()) : "memory");
        return ownCpuMs() - before;
    }

private:
    std::vector<std::vector<std::uint8_t>> m_buffers;
    std::size_t m_next = 0;
};

struct Cost {
    std::vector<double> clientMs;
    std::vector<double> serverMs;

    double totalMs() const
    {
        std::vector<double> sums;
        for (std::size_t i = 0; i < clientMs.size(); ++i)
            sums.push_back(clientMs[i] + serverMs[i]);
        return median(sums);
    }
};

/// One display of one server with everything that a frame passes.
class Pipeline
{
public:
    Pipeline(const VirtualScreen &screen) : m_source(screen.display()), m_gate(m_clock), m_serverPid(screen.pid())
    {
        m_gate.reset(0, {}); // no throttle: the measurement sets the pace
        m_display = m_source.shareableContent().value().displays.first();
    }

    void openDisplay()
    {
        const auto configuration = makeConfiguration(m_display, 0.5);
        m_screenshotter =
            std::move(m_source.makeScreenshotter(makeDisplayFilter(m_display, {}), configuration).value());
    }

    /// Takes a picture and judges it; an accepted frame becomes its part of the request's body.
    void takeFrame()
    {
        const auto picture = m_screenshotter->capture().value();
        m_gate.processCapturedImage(*picture, m_context, m_clock.nowMs());
        for (const CapturedFramePayload &frame : m_gate.takeBufferedFrames().frames)
            m_bodyBytes += frame.toJson().size();
    }

    void measure(Cost &cost)
    {
        const double serverBefore = cpuMsOf(m_serverPid);
        const double clientBefore = ownCpuMs();
        takeFrame();
        cost.clientMs.push_back(ownCpuMs() - clientBefore);
        cost.serverMs.push_back(cpuMsOf(m_serverPid) - serverBefore);
    }

    qint64 acceptedCount() const { return m_gate.counters.acceptedFrameCount; }
    qint64 unchangedCount() const { return m_gate.counters.unchangedFrameCount; }

private:
    SystemClock m_clock;
    X11DisplaySource m_source;
    FrameGate m_gate;
    qint64 m_serverPid;
    CapturableDisplay m_display;
    DisplayCaptureContext m_context;
    std::unique_ptr<DisplayScreenshotter> m_screenshotter;
    qint64 m_bodyBytes = 0;
};

void printHeader()
{
    std::printf("%-34s %-10s %10s %10s %10s %8s %8s\n", "", "screen", "client", "X server", "unit", "ratio", "budget");
}

bool printRow(const char *name, QSize size, double client, double server, double unit, double total, double budget)
{
    const double ratio = total / unit;
    const bool holds = ratio <= budget;
    std::printf("%-34s %4dx%-5d %10.2f %10.2f %10.2f %8.2f %8.1f  %s\n", name, size.width(), size.height(), client,
                server, unit, ratio, budget, holds ? "ok" : "over");
    return holds;
}

bool measureMemory(QSize size)
{
    const double frameMegabytes = double(size.width()) * size.height() * 4 / 1e6;
    VirtualScreen screen(size);
    DesktopScene scene(screen.display(), size);
    Pipeline pipeline(screen);
    const auto megabytes = [](qint64 pid) { return double(proportionalBytesOf(pid)) / 1e6; };
    const double clientBefore = megabytes(getpid());
    const double serverBefore = megabytes(screen.pid());
    pipeline.openDisplay();
    for (int i = 0; i < 5; ++i) {
        scene.change();
        pipeline.takeFrame();
    }
    const double client = megabytes(getpid()) - clientBefore;
    const double server = megabytes(screen.pid()) - serverBefore;
    return printRow("memory of a display, MB", size, client, server, frameMegabytes, client + server, 1.5);
}

bool measureTime(QSize size)
{
    VirtualScreen screen(size);
    DesktopScene scene(screen.display(), size);
    Pipeline pipeline(screen);
    pipeline.openDisplay();
    pipeline.takeFrame();
    ColdCopy copy(std::size_t(size.width()) * std::size_t(size.height()) * 4);
    std::vector<double> copies;
    Cost unchanged;
    Cost changed;
    for (int round = 0; round < rounds; ++round) {
        std::this_thread::sleep_for(pause);
        copies.push_back(copy.measureMs());
        std::this_thread::sleep_for(pause);
        pipeline.measure(unchanged);
        scene.change();
        std::this_thread::sleep_for(pause);
        pipeline.measure(changed);
    }
    if (pipeline.acceptedCount() != rounds + 1 || pipeline.unchangedCount() != rounds)
        qFatal("the frames were not judged as meant: %lld sent, %lld unchanged", pipeline.acceptedCount(),
               pipeline.unchangedCount());
    const double unit = median(copies);
    const bool first = printRow("unchanged: grab, thumbnail, compare", size, median(unchanged.clientMs),
                                median(unchanged.serverMs), unit, unchanged.totalMs(), 2.2);
    const bool second = printRow("changed: to JPEG, base64 and JSON", size, median(changed.clientMs),
                                 median(changed.serverMs), unit, changed.totalMs(), 11);
    return first && second;
}

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    std::printf("Processor time in ms; the unit is a cold copy of the frame. Medians of %d frames.\n", rounds);
    printHeader();
    bool allHold = true;
    for (const QSize size : {QSize(1920, 1080), QSize(3840, 2160)})
        allHold = measureMemory(size) && allHold; // first, while this process is still small
    for (const QSize size : {QSize(1920, 1080), QSize(3840, 2160)})
        allHold = measureTime(size) && allHold;
    return allHold ? 0 : 1;
}
