#include "capture/CaptureWatch.h"

#include "base/Clock.h"
#include "base/SerialQueue.h"
#include "capture/CaptureSources.h"

#include <vector>

namespace ostrel {

namespace {

/// What the looks so far have seen of one display.
struct Watched {
    quint32 signs = 0;
    int silentLooks = 0;
    bool isMissed = false; ///< it was told that there never was a picture
};

struct Sight {
    QStringList stalled;     ///< labels
    QStringList pictureless; ///< those that were not told before
    bool allMove = true;
};

void lookForPicture(const DisplayCaptureContext &display, Watched &watched, Sight &sight)
{
    if (display.signsOfLife.looksWithoutPicture() < CaptureWatch::silentLooks)
        return;
    sight.allMove = false;
    if (!std::exchange(watched.isMissed, true))
        sight.pictureless.append(display.displayLabel);
}

Sight look(const CaptureWatch &watch, std::vector<Watched> &watched)
{
    Sight sight;
    for (std::size_t i = 0; i < watched.size(); ++i) {
        const DisplayCaptureContext &display = *watch.displays[qsizetype(i)];
        if (display.signsOfLife.hasEnded()) {
            sight.allMove = false;
            continue;
        }
        const quint32 before = std::exchange(watched[i].signs, display.signsOfLife.count());
        if (before != watched[i].signs) {
            watched[i].silentLooks = 0;
            lookForPicture(display, watched[i], sight);
            continue;
        }
        sight.allMove = false;
        if (++watched[i].silentLooks % CaptureWatch::silentLooks == 0)
            sight.stalled.append(display.displayLabel);
    }
    return sight;
}

QString stallMessage(const QStringList &displays)
{
    return QStringLiteral("Screen capture has stalled: no answer from %1").arg(displays.join(QStringLiteral(", ")));
}

QString missingPicturesMessage(const QStringList &displays)
{
    return QStringLiteral("Screen capture has no picture yet: none has come from %1")
        .arg(displays.join(QStringLiteral(", ")));
}

} // namespace

Task<> watchCapture(CaptureWatch watch, std::stop_token stop)
{
    std::vector<Watched> watched(std::size_t(watch.displays.size()));
    bool isToldThatItGoesOn = false;
    while (true) {
        // Screenshots are signs themselves. Streams of a still screen have to be asked for one.
        if (watch.mode == CaptureMode::Streams)
            watch.sampleQueue.post([sources = watch.sources] { sources->lookForSignsOfLife(); });
        if (!co_await watch.clock.sleepFor(CaptureWatch::timeBetweenLooks, stop))
            co_return;
        const Sight sight = look(watch, watched);
        if (!sight.stalled.isEmpty()) {
            isToldThatItGoesOn = false;
            watch.stalled(stallMessage(sight.stalled));
        } else if (!sight.pictureless.isEmpty()) {
            isToldThatItGoesOn = false;
            watch.missesPictures(missingPicturesMessage(sight.pictureless));
        } else if (sight.allMove && !std::exchange(isToldThatItGoesOn, true)) {
            watch.goesOn();
        }
    }
}

} // namespace ostrel
