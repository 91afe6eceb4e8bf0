#pragma once

#include "platform/kwin/KWinPrivacy.h"

#include <QByteArray>
#include <QList>
#include <QRect>
#include <QString>

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

namespace ostrel {

/// Where private windows are, in logical pixels of KWin's desktop.
struct KWinPlaces {
    QList<QRect> monitors;
    /// Where private windows are now, and where they were within the last second.
    QList<QRect> windows;
    /// One of them has come or gone within the last second, and an effect may have drawn it anywhere.
    bool mayBeAnywhere = false;
    /// What KWin has drawn since then may not be told yet.
    std::chrono::milliseconds age{0};
};

/// Where KWin is, where its script may lie, and by which clock the last second is measured.
struct KWinSeams {
    QByteArray busAddress = {};                  ///< empty means the session's own
    QString scriptFolder = {};                   ///< empty means the session's runtime folder
    std::chrono::milliseconds firstPause{1'000}; ///< before a lost bus, or a KWin that refuses, is tried again
    /// Without anybody who asks, the script is unloaded: no recording asks more rarely than every ten seconds.
    std::chrono::milliseconds restAfter{60'000};
    /// Time that only ever goes on, from any beginning. Called on any thread.
    std::function<std::chrono::milliseconds()> monotonicTime = [] {
        const auto sinceBoot = std::chrono::steady_clock::now().time_since_epoch();
        return std::chrono::duration_cast<std::chrono::milliseconds>(sinceBoot);
    };
};

/// Finds the places of private windows by a script that KWin runs for us and that tells all windows whenever one of
/// them changes. Heard on a thread of its own, from the first question on until this is destroyed, or nobody has asked
/// for a while; then the script is unloaded. On a desktop without KWin nothing happens, and nothing is known.
///
/// What KWin's effects show elsewhere is unknown: the overview, pictures of windows in the task bar and its switcher.
/// So are menus of X programs in KWin 5.
class KWinWindows
{
public:
    explicit KWinWindows(KWinPrivacy privacy, KWinSeams seams = {});
    KWinWindows(const KWinWindows &) = delete;
    KWinWindows &operator=(const KWinWindows &) = delete;
    ~KWinWindows();

    /// Never waits for KWin, and so the first answer is absent. But it has KWin asked, so that a later answer is no
    /// older than this question. Any thread; the privacy rules are asked on the same, but never by two at once.
    /// @param processes whose windows are private whatever the rules say
    /// @return absent while KWin's windows are not known
    std::optional<KWinPlaces> places(const QList<qint32> &processes);

private:
    struct Hearing;

    const KWinPrivacy m_privacy;
    const KWinSeams m_seams;
    std::mutex m_asking;
    std::unique_ptr<Hearing> m_hearing; ///< from the first question on
};

} // namespace ostrel
