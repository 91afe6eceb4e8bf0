#include "ProcessUsage.h"
#include "context/AccessibilityTree.h"
#include "context/ActiveApplicationContext.h"
#include "context/BrowserScriptRunner.h"
#include "context/PrivacyRules.h"
#include "platform/atspi/AtspiAccess.h"
#include "platform/atspi/AtspiTree.h"
#include "platform/desktopentry/DesktopEntries.h"
#include "platform/x11/base/X11Connection.h"
#include "platform/x11/foreground/X11ForegroundSource.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <thread>
#include <vector>

/// What it costs to find out what the user is doing: whole samples of the desktop that it is started on, by the real
/// parts. Started by bench/programs/context_sample. Prints medians; status 1 when a budget is exceeded, or when the
/// samples didn't all tell of a page.

using namespace ostrel;

namespace {

constexpr int rounds = 41;
/// Between samples, so that nothing is in the caches but what a real recording would find there.
constexpr auto pause = std::chrono::milliseconds(200);
/// Holds the window in front, as a user's screen does.
constexpr QRectF wholeScreen(0, 0, 1280, 800);
constexpr double elapsedBudgetMs = 15;
constexpr double cpuBudgetMs = 0.5;

class NoScripts final : public BrowserScriptRunner
{
public:
    std::optional<QString> run(const Browser & /*browser*/, const QString & /*script*/,
                               QDeadlineTimer /*deadline*/) override
    {
        return std::nullopt;
    }
};

double median(std::vector<double> values)
{
    const auto middle = values.begin() + std::ptrdiff_t(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

struct Costs {
    std::vector<double> elapsedMs;
    std::vector<double> cpuMs;
};

/// @param act one sample
template <class Act>
Costs measure(Act act)
{
    Costs costs;
    for (int i = 0; i < rounds; ++i) {
        std::this_thread::sleep_for(pause);
        QElapsedTimer elapsed;
        const double cpuBefore = ownCpuMs();
        elapsed.start();
        act();
        costs.elapsedMs.push_back(double(elapsed.nsecsElapsed()) / 1e6);
        costs.cpuMs.push_back(ownCpuMs() - cpuBefore);
    }
    return costs;
}

void print(const char *what, const Costs &costs)
{
    std::printf("%-24s elapsed %6.2f ms (worst %6.2f)   processor %5.2f ms\n", what, median(costs.elapsedMs),
                *std::ranges::max_element(costs.elapsedMs), median(costs.cpuMs));
}

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    DesktopEntries entries(DesktopEntries::sessionFolders());
    X11ForegroundSource foreground({}, [&entries](const QString &name) { return entries.applicationFor(name); });
    AtspiAccess access;
    AtspiTree tree;
    NoScripts scripts;
    ActiveApplicationContext context({.foreground = foreground,
                                      .accessibility = access,
                                      .tree = tree,
                                      .browserScripts = scripts,
                                      .excludesWindow = [](const WindowIdentity &) { return false; }});
    const QList<ActiveDisplayCandidate> displays = {
        {.displayId = QStringLiteral("1"), .displayLabel = QStringLiteral("screen"), .bounds = wholeScreen}};
    const QString text = context.currentRecordingContext(displays).appContextText.value_or(QString());
    std::printf("%s\n", qUtf8Printable(text));
    const auto permission = measure([&] { access.isTrusted(); });
    const auto windowSystem = measure([&] {
        foreground.frontmostApplication();
        foreground.focusedWindow();
    });
    const auto server = X11Connection::open({});
    const auto bareQuestion =
        measure([&] { server.value()->reply<xcb_get_input_focus_reply>(xcb_get_input_focus(server.value()->get())); });
    int told = 0;
    const auto whole = measure([&] {
        const auto sample = context.currentRecordingContext(displays).appContextText.value_or(QString());
        told += sample.contains(QLatin1String("- Page: ")) ? 1 : 0;
    });
    print("whole sample", whole);
    print("of it, permission", permission);
    print("of it, window system", windowSystem);
    // The smallest thing that can be asked: what the machine's own pace and cold caches make of it.
    print("a bare question", bareQuestion);
    std::printf("the processor time of %.1f bare questions\n", median(whole.cpuMs) / median(bareQuestion.cpuMs));
    const bool isWithinBudget = median(whole.elapsedMs) <= elapsedBudgetMs && median(whole.cpuMs) <= cpuBudgetMs;
    if (!isWithinBudget)
        std::printf("exceeded: the budget is %g ms elapsed, %g ms processor\n", elapsedBudgetMs, cpuBudgetMs);
    std::printf("%d of %d samples told of the page\n", told, rounds);
    return isWithinBudget && told == rounds ? 0 : 1;
}
