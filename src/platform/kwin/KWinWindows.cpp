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
        : bus({.address = seams.busAddress.isEmpty() ? sessionBusAddress().toLocal8Bit() : seams.busAddress,
               .name = "session bus",
               .firstPause = seams.firstPause},
              std::make_unique<KWinWatch>(
                  [this, now = seams.monotonicTime](std::optional<KWinNews> news) {
                      const std::scoped_lock lock(mutex);
                      if (news)
                          history.take(std::move(*news), now());
                      else
                          history.forget();
                  },
                  seams.scriptFolder.isEmpty() ? runtimeFolder() : seams.scriptFolder, seams.firstPause))
    {}

    std::mutex mutex;
    KWinHistory history;
    BusThread bus; ///< the last, for it uses the others
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
    const auto moments = [this] {
        const std::scoped_lock lock(m_hearing->mutex);
        return m_hearing->history.lately(m_seams.monotonicTime());
    }();
    if (!moments)
        return std::nullopt;
    return KWinPlaces{.monitors = moments->monitors, .windows = m_privacy.placesIn(moments->windows, processes)};
}

} // namespace ostrel
