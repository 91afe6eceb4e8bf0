#include "platform/portal/PictureFeed.h"

#include "base/Fault.h"
#include "platform/portal/PictureBuffer.h"

#include <algorithm>
#include <utility>

namespace ostrel {

namespace {

constexpr std::ptrdiff_t bytesPerPixel = 4;

/// What two steps have changed. @return absent where nobody knows it of one of them
ChangedRows inEither(const ChangedRows &one, const ChangedRows &other)
{
    if (!one || !other)
        return std::nullopt;
    auto all = *one;
    all.insert(all.end(), other->begin(), other->end());
    return joinedRows(std::move(all));
}

} // namespace

PictureFeed::PictureFeed(QSize size, QString name, DisplaySource::StreamDelegate delegate, Post post, Pace pace,
                         std::shared_ptr<PictureCover> cover)
    : m_displaySize(size), m_name(std::move(name)), m_delegate(std::move(delegate)), m_post(std::move(post)),
      m_pace(std::move(pace)), m_cover(std::move(cover)), m_judgement(m_cover)
{}

void PictureFeed::take(const ProducedPicture &picture)
{
    const QSize size = picture.conversion.uprightSize(picture.source.size);
    if (picture.source.size != m_displaySize && size != m_displaySize)
        return fail(faultError(Fault::DisplayResized, m_name));
    const auto now = m_pace.monotonicTime();
    const auto places = m_cover ? m_cover->places(size) : std::nullopt;
    const std::scoped_lock lock(m_mutex);
    if (m_state != State::Open)
        return;
    const ChangedRows changes = rowsOf(picture);
    m_size = size;
    m_judgement.begin(now, size, places, m_isNew);
    m_isFresherAsked = false;
    m_isStill = false;
    note(changes);
    m_held = picture;
    m_hasTaken = true;
    m_conversion = picture.conversion;
    m_isMissed = false;
    m_isNew = true;
    postWhenDue();
}

bool PictureFeed::isHolding() const
{
    const std::scoped_lock lock(m_mutex);
    return m_held && m_state == State::Open;
}

void PictureFeed::letGo()
{
    std::unique_lock lock(m_mutex);
    m_isRead.wait(lock, [this] { return !m_isReading || m_state != State::Open; });
    if (m_state == State::Open)
        copyHeld();
}

void PictureFeed::miss()
{
    const std::scoped_lock lock(m_mutex);
    m_isMissed = true;
}

bool PictureFeed::hasTaken() const
{
    const std::scoped_lock lock(m_mutex);
    return m_hasTaken;
}

ChangedRows PictureFeed::rowsOf(const ProducedPicture &picture) const
{
    if (!picture.changes || m_isMissed || !m_hasTaken || picture.conversion != m_conversion ||
        picture.conversion.uprightSize(picture.source.size) != m_size)
        return std::nullopt;
    std::vector<RowRange> rows;
    for (const QRect &rectangle : *picture.changes) {
        if (const auto range = picture.conversion.uprightRows(rectangle, picture.source.size))
            rows.push_back(*range);
    }
    return joinedRows(std::move(rows));
}

void PictureFeed::note(const ChangedRows &changes)
{
    m_changes = m_isNew ? inEither(m_changes, changes) : changes;
    m_uncopied = m_held ? inEither(m_uncopied, changes) : changes;
}

void PictureFeed::copyHeld()
{
    if (!m_held)
        return;
    const MappedMemory::Access access(m_held->memory);
    m_pixels.resize(std::size_t(m_size.width()) * std::size_t(m_size.height()) * bytesPerPixel);
    for (const RowRange &rows : m_uncopied.value_or(std::vector{RowRange{.begin = 0, .end = m_size.height()}}))
        convertRows(m_held->conversion, m_held->source, rows, m_pixels.data());
    m_held.reset();
}

void PictureFeed::deliverWhenDue()
{
    const std::scoped_lock lock(m_mutex);
    postWhenDue();
}

void PictureFeed::deliverAgain()
{
    const std::scoped_lock lock(m_mutex);
    if (!m_hasTaken)
        return;
    if (!std::exchange(m_isNew, true))
        m_changes.emplace();
    postWhenDue();
}

void PictureFeed::postWhenDue()
{
    if (!m_isNew || m_state != State::Open)
        return;
    // Also while a delivery is on its way: it would be of this picture.
    const bool isDecided = m_judgement.isReached(m_pace.monotonicTime());
    const auto now = m_pace.monotonicTime();
    if (!isDecided)
        return m_pace.wakeAfter(std::max(m_judgement.nextLook() - now, std::chrono::milliseconds(0)));
    if (m_isPosted)
        return;
    if (m_postedAt && now < *m_postedAt + m_pace.interval)
        return m_pace.wakeAfter(*m_postedAt + m_pace.interval - now);
    m_postedAt = now;
    m_isPosted = true;
    m_post([weak = weak_from_this()] {
        if (const auto feed = weak.lock())
            feed->deliver();
    });
}

void PictureFeed::deliver()
{
    std::unique_lock lock(m_mutex);
    m_isPosted = false;
    if (m_state != State::Open)
        return;
    if (m_judgement.verdict() == Verdict::Pending) {
        // It has come since this was posted, and is posted itself when it is judged.
        m_postedAt.reset();
        return;
    }
    const auto places = m_judgement.placesToCover();
    if (!places) {
        // It stays new, until it is asked for again or another one comes.
        lock.unlock();
        return m_delegate.didOutputSample(StreamSample{});
    }
    copyHeld();
    m_isNew = false;
    m_isReading = true;
    m_placesDelivered = *places;
    const ChangedRows changes = std::exchange(m_changes, std::nullopt);
    const QSize size = m_size;
    // Not under the lock: whoever is called may close this, and other pictures may come meanwhile.
    lock.unlock();
    FrameView view{.pixels = m_pixels.data(),
                   .width = size.width(),
                   .height = size.height(),
                   .stride = size.width() * bytesPerPixel};
    if (changes)
        view.changedRows = std::span<const RowRange>(*changes);
    m_delegate.didOutputSample(StreamSample{.image = m_covered.of(view, *places)});
    lock.lock();
    m_isReading = false;
    lock.unlock();
    m_isRead.notify_all();
}

bool PictureFeed::wantsFresherPicture()
{
    const std::scoped_lock lock(m_mutex);
    // While pictures come there is no need to ask for one.
    if (!std::exchange(m_isStill, true) || !m_cover || m_isFresherAsked || !m_hasTaken)
        return false;
    const Verdict verdict = m_judgement.verdict();
    const bool isKnown = verdict == Verdict::Known || verdict == Verdict::Pending;
    if (isKnown && m_placesDelivered.isEmpty())
        return false;
    const auto now = m_cover->places(m_size);
    const auto isOver = [&](const QRect &place) { return !now->black.contains(place); };
    m_isFresherAsked = now && !now->mayBeAnywhere && (!isKnown || std::ranges::any_of(m_placesDelivered, isOver));
    return m_isFresherAsked;
}

void PictureFeed::fail(const Error &error)
{
    {
        const std::scoped_lock lock(m_mutex);
        if (m_state != State::Open)
            return;
        m_state = State::Failed;
    }
    m_isRead.notify_all();
    m_post([weak = weak_from_this(), error] {
        if (const auto feed = weak.lock())
            feed->tellOfFailure(error);
    });
}

void PictureFeed::tellOfFailure(const Error &error)
{
    {
        const std::scoped_lock lock(m_mutex);
        if (std::exchange(m_state, State::Closed) == State::Closed)
            return;
    }
    m_delegate.didStopWithError(error);
}

void PictureFeed::close()
{
    {
        const std::scoped_lock lock(m_mutex);
        m_state = State::Closed;
    }
    m_isRead.notify_all();
}

} // namespace ostrel
