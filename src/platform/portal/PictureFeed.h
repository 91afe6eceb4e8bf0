#pragma once

#include "base/Error.h"
#include "capture/DisplaySource.h"
#include "platform/pixels/PixelConversion.h"
#include "platform/portal/ChangedRows.h"
#include "platform/portal/CoveredPicture.h"
#include "platform/portal/PictureCover.h"

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

/// A picture as its producer describes it. It belongs to the producer.
struct ProducedPicture {
    PixelSource source;
    PixelConversion conversion;
    /// All that differs from the producer's picture before, in pixels of `source`. Absent where nobody tells.
    std::optional<QList<QRect>> changes;
};

/// Between a producer of pictures, on its thread, and whoever wants them, on theirs. It keeps the newest picture,
/// upright and in the right colours, so that the producer has its memory back at once; only what has changed is copied.
///
/// Deliveries are never closer together than the interval, however many pictures come. The newest one is always
/// delivered in the end: what a screen shows when it comes to rest is not lost.
///
/// Where somebody tells what is private, it is black in what is delivered, and there only. A picture that others rely
/// on to be without private windows, but of which nobody knows where they are, is a delivery without a picture.
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

    /// Producer's thread. Waits while a picture is being read. One of another size than the display's ends the feed
    /// with Fault::DisplayResized; but a producer that has its pictures turned need not have said so beforehand.
    void take(const ProducedPicture &picture);
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
    /// Whether what was delivered last is black in a place that is private no more. What the picture shows there is
    /// older than that, so that only another one helps; it is wanted once, and only if none has come since it was asked
    /// last. Any thread.
    bool wantsFresherPicture();

private:
    enum class State {
        Open,
        Failed, ///< that is being said
        Closed,
    };

    ChangedRows rowsOf(const ProducedPicture &picture) const;
    void note(const ChangedRows &changes);
    void copy(const ProducedPicture &picture, const ChangedRows &changes);
    void postWhenDue();
    void deliver();
    /// Absent when the picture may not be shown.
    std::optional<QList<QRect>> placesToCover() const;
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
    std::vector<std::uint8_t> m_pixels; ///< upright, without gaps; empty before the first picture
    QSize m_size;                       ///< of it
    PixelConversion m_conversion;       ///< of the picture taken last
    ChangedRows m_changes;              ///< since the last delivery
    QList<QRect> m_placesAtTaking;      ///< that were private when the picture came
    QList<QRect> m_placesDelivered;     ///< that were black in the last delivery
    bool m_isFresherAsked = false;      ///< since the picture taken last
    bool m_isStill = false;             ///< none was taken since it was asked whether a fresher one is wanted
    bool m_isMissed = false;            ///< since the picture taken last
    bool m_isNew = false;               ///< there is something to deliver
    bool m_isPosted = false;
    bool m_isReading = false;
    State m_state = State::Open;
    std::optional<std::chrono::milliseconds> m_postedAt;
};

} // namespace ostrel
