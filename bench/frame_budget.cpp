#include "ColdCopy.h"
#include "DesktopScene.h"
#include "OwnWindow.h"
#include "ProcessUsage.h"
#include "VirtualScreen.h"
#include "base/Clock.h"
#include "capture/CaptureConfiguration.h"
#include "capture/FrameGate.h"
#include "platform/x11/base/X11Connection.h"
#include "platform/x11/capture/X11DisplaySource.h"

#include <QCoreApplication>

#include <chrono>
#include <cstdio>
#include <functional>
#include <optional>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

/// What a frame costs on its way from the screen to the buffer, by the real parts on a real X server: processor time
/// of this process and of the server together, in terms of a cold copy of the frame in memory.

using namespace ostrel;

namespace {

constexpr int rounds = 41;
/// Between frames, so that nothing is in the caches but what a real recording would find there.
constexpr auto pause = std::chrono::milliseconds(100);

struct Cost {
    std::vector<double> clientMs;
    std::vector<double> serverMs;

    /// Adds what an action costs this process and the server.
    void measure(qint64 serverPid, const std::function<void()> &action)
    {
        const double serverBefore = cpuMsOf(serverPid);
        const double clientBefore = ownCpuMs();
        action();
        clientMs.push_back(ownCpuMs() - clientBefore);
        serverMs.push_back(cpuMsOf(serverPid) - serverBefore);
    }

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
    explicit Pipeline(const VirtualScreen &screen) : m_source(screen.display()), m_gate(m_clock)
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
        m_knowsChanges = picture->changedRows.has_value();
        m_gate.processCapturedImage(*picture, m_context, m_clock.nowMs());
        for (const CapturedFramePayload &frame : m_gate.takeBufferedFrames().frames)
            m_bodyBytes += frame.toJson().size();
    }

    qint64 acceptedCount() const { return m_gate.counters.acceptedFrameCount; }
    /// Whether the last picture came with the rows that have changed, which nobody knows of one that was composed.
    bool knowsChanges() const { return m_knowsChanges; }

private:
    SystemClock m_clock;
    X11DisplaySource m_source;
    FrameGate m_gate;
    CapturableDisplay m_display;
    DisplayCaptureContext m_context;
    std::unique_ptr<DisplayScreenshotter> m_screenshotter;
    qint64 m_bodyBytes = 0;
    bool m_knowsChanges = false;
};

void printHeader()
{
    std::printf("%-34s %-10s %10s %10s %10s %8s %8s\n", "", "screen", "client", "X server", "unit", "ratio", "budget");
}

/// @param budget absent for what is only told for comparison
/// @return whether it holds
bool printRow(const char *name, QSize size, double client, double server, double unit, double total,
              std::optional<double> budget = std::nullopt)
{
    const double ratio = total / unit;
    std::printf("%-34s %4dx%-5d %10.2f %10.2f %10.2f %8.2f", name, size.width(), size.height(), client, server, unit,
                ratio);
    if (budget)
        std::printf(" %8.1f  %s", *budget, ratio <= *budget ? "ok" : "over");
    std::printf("\n");
    return !budget || ratio <= *budget;
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

/// One screen of one server, and what its frames cost, kind by kind, with a copy of the frame between each two.
class TimeMeasurement
{
public:
    /// @param serverArguments that the X server is started with
    TimeMeasurement(QSize size, const QStringList &serverArguments)
        : m_size(size), m_screen(size, serverArguments), m_scene(m_screen.display(), size), m_pipeline(m_screen),
          m_copy(std::size_t(size.width()) * std::size_t(size.height()) * 4)
    {
        m_pipeline.openDisplay();
        m_pipeline.takeFrame();
    }

    using Change = void (DesktopScene::*)();

    /// @param change what is drawn before each frame; null leaves the screen as it is
    /// @return whether it costs no more than the budget
    bool holds(const char *name, Change change, double budget)
    {
        const qint64 acceptedBefore = m_pipeline.acceptedCount();
        const auto [cost, unit] = measure([this] { m_pipeline.takeFrame(); }, change);
        const qint64 accepted = m_pipeline.acceptedCount() - acceptedBefore;
        if (accepted != (change ? rounds : 0))
            qFatal("%s: %lld of %d frames were sent", name, accepted, rounds);
        return printRow(name, m_size, median(cost.clientMs), median(cost.serverMs), unit, cost.totalMs(), budget);
    }

    const QByteArray &display() const { return m_screen.display(); }

    /// Takes a frame that doesn't count: where a window is left out the others' picture has a hole, the screen's had
    /// none.
    void beginComposing()
    {
        m_pipeline.takeFrame();
        if (m_pipeline.knowsChanges())
            qFatal("pictures are still taken of the screen itself, although a window is to be left out");
    }

    /// What waking the server up and waiting for it costs at the least: so much more is a frame that asks anything.
    void printRoundTrip()
    {
        const auto connection = X11Connection::open(m_screen.display()).value();
        const auto ask = [&connection] {
            connection->reply<xcb_get_input_focus_reply>(xcb_get_input_focus(connection->get()));
        };
        const auto [cost, unit] = measure(ask, nullptr);
        printRow("(an empty round trip)", m_size, median(cost.clientMs), median(cost.serverMs), unit, cost.totalMs());
    }

private:
    /// @return what the action costs, and a copy of the frame beside it
    std::pair<Cost, double> measure(const std::function<void()> &action, Change change)
    {
        std::vector<double> copies;
        Cost cost;
        for (int round = 0; round < rounds; ++round) {
            std::this_thread::sleep_for(pause);
            copies.push_back(m_copy.measureMs());
            if (change)
                (m_scene.*change)();
            std::this_thread::sleep_for(pause);
            cost.measure(m_screen.pid(), action);
        }
        return {cost, median(copies)};
    }

    const QSize m_size;
    VirtualScreen m_screen;
    DesktopScene m_scene;
    Pipeline m_pipeline;
    ColdCopy m_copy;
};

bool measureTime(QSize size)
{
    TimeMeasurement tracked(size, {});
    tracked.printRoundTrip();
    bool allHold = tracked.holds("unchanged", nullptr, 0.1);
    allHold = tracked.holds("changed: a line of text", &DesktopScene::change, 11) && allHold;
    allHold = tracked.holds("changed: all of the screen", &DesktopScene::changeAll, 11) && allHold;
    // A window that belongs into no picture: the server puts the others together without it, at each poll, before they
    // are fetched, which takes it two more passes over the frame.
    const OwnWindow own(tracked.display(), QRect(QPoint(), size / 3));
    tracked.beginComposing();
    allHold = tracked.holds("unchanged, composed", nullptr, 4.5) && allHold;
    allHold = tracked.holds("changed: all of it, composed", &DesktopScene::changeAll, 12.5) && allHold;
    // Where the server can't tell what has changed, every picture is fetched whole.
    TimeMeasurement untracked(size, {QStringLiteral("-extension"), QStringLiteral("DAMAGE")});
    return untracked.holds("unchanged, without XDamage", nullptr, 2.2) && allHold;
}

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ); // rows are told also when a later one ends the program
    std::printf("Processor time in ms; the unit is a cold copy of the frame. Medians of %d frames.\n", rounds);
    printHeader();
    bool allHold = true;
    for (const QSize size : {QSize(1920, 1080), QSize(3840, 2160)})
        allHold = measureMemory(size) && allHold; // first, while this process is still small
    for (const QSize size : {QSize(1920, 1080), QSize(3840, 2160)})
        allHold = measureTime(size) && allHold;
    return allHold ? 0 : 1;
}
