#include "ColdCopy.h"
#include "base/Clock.h"
#include "capture/CaptureConfiguration.h"
#include "capture/FrameGate.h"
#include "platform/wlroots/WlrDisplaySource.h"

#include <QCoreApplication>
#include <QFile>

#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

/// What a frame of a Wayland compositor costs us on its way into the buffer, by the real parts: processor time of this
/// process alone, in terms of a cold copy of the frame. The compositor writes the picture itself; what that costs it is
/// its own. Started by bench/programs/wlroots_frame, which has a terminal write where this asks for it. Status 1 when a
/// budget is exceeded.

using namespace ostrel;

namespace {

constexpr std::size_t rounds = 41;
/// Between frames, so that nothing is in the caches but what a real recording would find there, and for the terminal.
constexpr auto pause = std::chrono::milliseconds(150);

/// The first display of the session with everything that a frame passes.
class Pipeline
{
public:
    Pipeline() : m_gate(m_clock)
    {
        m_gate.reset(0, {}); // no throttle: the measurement sets the pace
        const auto content = m_source.shareableContent();
        if (!content || content->displays.isEmpty())
            qFatal("there is no Wayland display that can be recorded");
        m_display = content->displays.first();
        m_screenshotter = std::move(
            m_source.makeScreenshotter(makeDisplayFilter(m_display, {}), makeConfiguration(m_display, 0.5)).value());
    }

    /// Takes a picture and judges it; an accepted frame becomes its part of the request's body.
    void takeFrame()
    {
        const auto picture = m_screenshotter->capture().value();
        m_gate.processCapturedImage(*picture, m_context, m_clock.nowMs());
        for (const CapturedFramePayload &frame : m_gate.takeBufferedFrames().frames)
            m_bodyBytes += frame.toJson().size();
    }

    qint64 acceptedCount() const { return m_gate.counters.acceptedFrameCount; }
    std::size_t frameBytes() const { return std::size_t(m_display.width) * std::size_t(m_display.height) * 4; }
    const CapturableDisplay &display() const { return m_display; }

private:
    SystemClock m_clock;
    WlrDisplaySource m_source;
    FrameGate m_gate;
    CapturableDisplay m_display;
    DisplayCaptureContext m_context;
    std::unique_ptr<DisplayScreenshotter> m_screenshotter;
    qint64 m_bodyBytes = 0;
};

/// A terminal on the display, which shows what is written into a pipe.
class Terminal
{
public:
    explicit Terminal(const QString &pipe) : m_pipe(pipe)
    {
        if (!m_pipe.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
            qFatal("%s can't be written", qUtf8Printable(pipe));
    }

    void showLine() { m_pipe.write("line\n"); }
    void showPage() { m_pipe.write("page\n"); }

private:
    QFile m_pipe;
};

/// @param change what is drawn before each frame; null leaves the screen as it is
/// @return whether it costs no more than the budget, in copies of the frame
bool holds(const char *name, Pipeline &pipeline, const std::function<void()> &change, double budget)
{
    ColdCopy copy(pipeline.frameBytes());
    std::vector<double> copies;
    std::vector<double> costs;
    // A terminal on a busy machine may still be drawing; what came too late is measured in another round.
    constexpr std::size_t mostAttempts = 2 * rounds;
    for (std::size_t attempt = 0; costs.size() < rounds; ++attempt) {
        if (attempt == mostAttempts)
            qFatal("%s: the screen did not change as it should", name);
        std::this_thread::sleep_for(pause);
        copies.push_back(copy.measureMs());
        if (change)
            change();
        std::this_thread::sleep_for(pause);
        const qint64 acceptedBefore = pipeline.acceptedCount();
        const double before = ownCpuMs();
        pipeline.takeFrame();
        const double cost = ownCpuMs() - before;
        if (pipeline.acceptedCount() - acceptedBefore == (change ? 1 : 0))
            costs.push_back(cost);
    }
    const double ratio = median(costs) / median(copies);
    std::printf("%-28s %4lldx%-5lld %10.2f %10.2f %8.2f %8.1f  %s\n", name, pipeline.display().width,
                pipeline.display().height, median(costs), median(copies), ratio, budget,
                ratio <= budget ? "ok" : "over");
    return ratio <= budget;
}

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    if (argc != 2)
        qFatal("usage: bench_wlroots_frame PIPE; start it by bench/programs/wlroots_frame");
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ); // rows are told also when a later one ends the program
    Terminal terminal(QString::fromLocal8Bit(argv[1]));
    terminal.showPage();
    std::this_thread::sleep_for(std::chrono::seconds(1));
    Pipeline pipeline;
    pipeline.takeFrame();
    std::printf("%-28s %-10s %10s %10s %8s %8s\n", "", "screen", "client", "unit", "ratio", "budget");
    bool allHold = holds("unchanged", pipeline, nullptr, 1.2);
    allHold = holds("changed: a line of text", pipeline, [&] { terminal.showLine(); }, 11) && allHold;
    allHold = holds("changed: all of the screen", pipeline, [&] { terminal.showPage(); }, 11) && allHold;
    return allHold ? 0 : 1;
}
