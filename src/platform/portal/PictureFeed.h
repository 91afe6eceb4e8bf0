#pragma once

#include "base/Error.h"
#include "capture/DisplaySource.h"
#include "platform/pixels/PixelConversion.h"
#include "platform/portal/ChangedRows.h"
#include "platform/portal/CoveredPicture.h"
#include "platform/portal/PictureCover.h"
#include "platform/portal/PictureJudgement.h"

#include <QList>
#include <QRect>
#include <QSize>
#include <QString>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace ostrel {

class MappedMemory;

/// A picture as its producer describes it. It belongs to the producer.
struct ProducedPicture {
    PixelSource source;
    PixelConversion conversion;
    /// All that differs from the producer's picture before, in pixels of `source`. Absent where nobody tells.
    std::optional<QList<QRect>> changes;
    const MappedMemory *memory = nullptr; ///< that `source` is in; null where that can always be read
};

/// Between a producer of pictures, on its thread, and whoever wants them, on theirs. It keeps the picture that is
/// delivered, upright and in the right colours; of the next one only what has changed is copied, and only when it is to
/// be delivered. One that another follows before its time has come costs nothing.
///
/// Deliveries are never closer together than the interval, however many pictures come. The newest one is always
/// delivered in the end: what a screen shows when it comes to rest is not lost.
///
/// Where somebody tells what is private, it is black in what is delivered, and there only. A picture may be here before
/// the news of what it shows, so it waits until all is told that was drawn before it came. A picture that others rely
/// on to be without private windows, but of which nobody knows where they are, is a delivery without a picture; so is,
/// for everybody, one in which they may be anywhere.
class PictureFeed : public std::enable_shared_from_this<PictureFeed>
{
public:
    struct Pace {
        std::chrono::milliseconds interval; ///< at the least, between deliveries
        std::function<std::chrono::milliseconds()> monotonicTime;
        /// Has `deliverWhenDue` called after that time, on the producer's thread; a later call replaces an earlier one.
        std::function<void(std::chrono::milliseconds)> wakeAfter;
    };
    /// Runs a job on the thread of deliveries.
    using Post = std::function<void(std::function<void()>)>;

    /// @param size pixels of the display, as people see it
    /// @param name of the display, for messages
    /// @param cover may be null: then nothing is known of private windows
    PictureFeed(QSize size, QString name, DisplaySource::StreamDelegate delegate, Post post, Pace pace,
                std::shared_ptr<PictureCover> cover = nullptr);

    /// Producer's thread. One of another size than the display's ends the feed with Fault::DisplayResized; but a
    /// producer that has its pictures turned need not have said so beforehand. What was taken before may be overwritten
    /// from now on, and this one when `isHolding` says no.
    void take(const ProducedPicture &picture);
    /// Whether the picture taken last is still to be read in its producer's memory. Any thread.
    bool isHolding() const;
    /// Reads it now, for its memory goes. Producer's thread. Waits while a picture is being read.
    void letGo();
    /// A picture could not be read: what the next one tells of changes isn't all. Producer's thread.
    void miss();
    /// Delivers what has waited for its time. Producer's thread.
    void deliverWhenDue();
    /// Delivers the newest picture once more, with nothing changed in it, when its time has come. Producer's thread, or
    /// with that one held up.
    void deliverAgain();
    /// No picture will come any more; said once, and nothing is delivered after it. Any thread.
    void fail(const Error &error);
    /// Nothing is delivered any more, from the moment that this returns on the thread of deliveries. Any thread.
    void close();

    bool hasTaken() const;
    /// Whether what was delivered last is black in a place that is private no more, or the newest picture can't be
    /// shown although the next one could. Only another one helps then; it is wanted once, and only if none has come
    /// since it was asked last. Any thread.
    bool wantsFresherPicture();

private:
    using Verdict = PictureJudgement::Verdict;
    enum class State {
        Open,
        Failed, ///< that is being said
        Closed,
    };

    ChangedRows rowsOf(const ProducedPicture &picture) const;
    /// Notes what has changed since the last delivery, and since the last copy.
    void note(const ChangedRows &changes);
    /// Makes the picture taken last the one that is kept. Not while that one is being read.
    void copyHeld();
    void postWhenDue();
    void deliver();
    void tellOfFailure(const Error &error);

    const QSize m_displaySize;
    const QString m_name;
    const DisplaySource::StreamDelegate m_delegate;
    const Post m_post;
    const Pace m_pace;
    const std::shared_ptr<PictureCover> m_cover;
    CoveredPicture m_covered; ///< what was delivered; on the thread of deliveries

    mutable std::mutex m_mutex; ///< of all below
    std::condition_variable m_isRead;
    std::vector<std::uint8_t> m_pixels;    ///< upright, without gaps
    std::optional<ProducedPicture> m_held; ///< the picture taken last, until it is copied
    ChangedRows m_uncopied;                ///< in which it differs from `m_pixels`
    bool m_hasTaken = false;
    QSize m_size;                   ///< of the picture taken last
    PixelConversion m_conversion;   ///< of the picture taken last
    ChangedRows m_changes;          ///< since the last delivery
    PictureJudgement m_judgement;   ///< of the picture taken last
    QList<QRect> m_placesDelivered; ///< that were black in the last delivery
    bool m_isFresherAsked = false;  ///< since the picture taken last
    bool m_isStill = false;         ///< none was taken since it was asked whether a fresher one is wanted
    bool m_isMissed = false;        ///< since the picture taken last
    bool m_isNew = false;           ///< there is something to deliver
    bool m_isPosted = false;
    bool m_isReading = false;
    State m_state = State::Open;
    std::optional<std::chrono::milliseconds> m_postedAt;
};

} // namespace ostrel
