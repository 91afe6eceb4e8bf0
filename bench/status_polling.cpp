#include "base/Clock.h"
#include "base/SerialQueue.h"
#include "base/TaskScope.h"
#include "observer/LocalObserverAPI.h"
#include "observer/NetworkTransport.h"

#include <QCoreApplication>

#include <cstdio>

using namespace ostrel;

namespace {

Task<> pollForEver(Clock &clock, LocalObserverAPI &api, std::stop_token stop)
{
    constexpr std::chrono::milliseconds interval{1500};
    while (!stop.stop_requested()) {
        const auto status = co_await api.status(stop);
        if (!status) {
            std::fprintf(stderr, "no status: %s\n", qUtf8Printable(status.error().localizedDescription));
            QCoreApplication::exit(1);
            co_return;
        }
        co_await clock.sleepFor(interval, stop);
    }
}

} // namespace

/// Asks the server on a port for its status as often as the application does, and does nothing else: the least that a
/// recording can cost. Runs until it is ended; status 1 when a request fails.
int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const QString port = QCoreApplication::arguments().value(1);
    SystemClock clock;
    SerialQueue worker(QStringLiteral("com.tamsk.ostrel.worker"));
    NetworkTransport transport(clock);
    LocalObserverAPI api(QUrl(QStringLiteral("http://127.0.0.1:") + port), QStringLiteral("token"), transport, worker);
    TaskScope tasks;
    // The scope keeps the closure. NOLINTNEXTLINE(cppcoreguidelines-avoid-capturing-lambda-coroutines)
    tasks.spawn([&](std::stop_token stop) { return pollForEver(clock, api, std::move(stop)); });
    return QCoreApplication::exec();
}
