#include "platform/kwin/KWinWindows.h"

#include "platform/kwin/KWinHistory.h"
#include "platform/kwin/KWinWatch.h"
#include "platform/sessionbus/SessionBusAddress.h"

#include <QDir>

#include <utility>

namespace ostrel {

namespace {

QString runtimeFolder()
{
    const QString folder = qEnvironmentVariable("XDG_RUNTIME_DIR");
    return folder.isEmpty() ? QDir::tempPath() : folder;
}

} // namespace

/// What the thread of the bus hears.
struct KWinWindows::Hearing {
    explicit Hearing(const KWinSeams &seams)
        : watch(makeWatch(seams).release()),
          bus({.address = seams.busAddress.isEmpty() ? sessionBusAddress().toLocal8Bit() : seams.busAddress,
               .name = "session bus",
               .firstPause = seams.firstPause},
              std::unique_ptr<KWinWatch>(watch))
    {}

    std::mutex mutex;
    KWinHistory history;
    KWinWatch *const watch; ///< the bus owns it
    BusThread bus;          ///< the last, for it uses the others

private:
    std::unique_ptr<KWinWatch> makeWatch(const KWinSeams &seams)
    {
        return std::make_unique<KWinWatch>(
            KWinWatch::Outlets{.tell =
                                   [this, now = seams.monotonicTime](std::optional<KWinNews> news) {
                                       const std::scoped_lock lock(mutex);
                                       if (news)
                                           history.take(std::move(*news), now());
                                       else
                                           history.forget();
                                   },
                               .confirm =
                                   [this](std::chrono::milliseconds time, bool isElsewhere) {
                                       const std::scoped_lock lock(mutex);
                                       history.confirm(time, isElsewhere);
                                   },
                               .monotonicTime = seams.monotonicTime},
            KWinWatch::Ways{.scriptFolder = seams.scriptFolder.isEmpty() ? runtimeFolder() : seams.scriptFolder,
                            .firstPause = seams.firstPause,
                            .restAfter = seams.restAfter});
    }
};

KWinWindows::KWinWindows(KWinPrivacy privacy, KWinSeams seams)
    : m_privacy(std::move(privacy)), m_seams(std::move(seams))
{}

KWinWindows::~KWinWindows() = default;

std::optional<KWinPlaces> KWinWindows::places(const QList<qint32> &processes)
{
    const std::scoped_lock asking(m_asking);
    if (!m_hearing)
        m_hearing = std::make_unique<Hearing>(m_seams);
    m_hearing->watch->ask();
    const auto moments = [this] {
        const std::scoped_lock lock(m_hearing->mutex);
        return m_hearing->history.lately(m_seams.monotonicTime());
    }();
    if (!moments)
        return std::nullopt;
    auto found = m_privacy.placesIn(moments->windows, processes);
    return KWinPlaces{.monitors = moments->monitors,
                      .windows = std::move(found.places),
                      .mayBeAnywhere = found.mayBeAnywhere,
                      .age = moments->age};
}

} // namespace ostrel
