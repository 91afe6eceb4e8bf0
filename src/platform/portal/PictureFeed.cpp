#include "platform/portal/PictureFeed.h"

#include "base/Fault.h"

#include <algorithm>
#include <utility>

namespace ostrel {

namespace {

constexpr std::ptrdiff_t bytesPerPixel = 4;

} // namespace

PictureFeed::PictureFeed(QSize size, QString name, DisplaySource::StreamDelegate delegate, Post post, Pace pace,
                         std::shared_ptr<PictureCover> cover)
    : m_displaySize(size), m_name(std::move(name)), m_delegate(std::move(delegate)), m_post(std::move(post)),
      m_pace(std::move(pace)), m_cover(std::move(cover))
{}

void PictureFeed::take(const ProducedPicture &picture)
{
    const QSize size = picture.conversion.uprightSize(picture.source.size);
    if (picture.source.size != m_displaySize && size != m_displaySize)
        return fail(faultError(Fault::DisplayResized, m_name));
    auto places = m_cover ? m_cover->places(size) : std::nullopt;
    std::unique_lock lock(m_mutex);
    m_isRead.wait(lock, [this] { return !m_isReading || m_state != State::Open; });
    if (m_state != State::Open)
        return;
    const ChangedRows changes = rowsOf(picture);
    m_size = size;
    m_placesAtTaking = std::move(places).value_or(QList<QRect>());
    m_isFresherAsked = false;
    m_isStill = false;
    note(changes);
    copy(picture, changes);
    m_conversion = picture.conversion;
    m_isMissed = false;
    m_isNew = true;
    postWhenDue();
}

void PictureFeed::miss()
{
    const std::scoped_lock lock(m_mutex);
    m_isMissed = true;
}

bool PictureFeed::hasTaken() const
{
    const std::scoped_lock lock(m_mutex);
    return !m_pixels.empty();
}

ChangedRows PictureFeed::rowsOf(const ProducedPicture &picture) const
{
    if (!picture.changes || m_isMissed || m_pixels.empty() || picture.conversion != m_conversion ||
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
    if (!changes || m_pixels.empty() || (m_isNew && !m_changes)) {
        m_changes.reset();
        return;
    }
    auto all = m_isNew ? *m_changes : std::vector<RowRange>();
    all.insert(all.end(), changes->begin(), changes->end());
    m_changes = joinedRows(std::move(all));
}

void PictureFeed::copy(const ProducedPicture &picture, const ChangedRows &changes)
{
    m_pixels.resize(std::size_t(m_size.width()) * std::size_t(m_size.height()) * bytesPerPixel);
    for (const RowRange &rows : changes.value_or(std::vector{RowRange{.begin = 0, .end = m_size.height()}}))
        convertRows(picture.conversion, picture.source, rows, m_pixels.data());
}

void PictureFeed::deliverWhenDue()
{
    const std::scoped_lock lock(m_mutex);
    postWhenDue();
}

void PictureFeed::deliverAgain()
{
    const std::scoped_lock lock(m_mutex);
    if (m_pixels.empty())
        return;
    if (!std::exchange(m_isNew, true))
        m_changes.emplace();
    postWhenDue();
}

void PictureFeed::postWhenDue()
{
    if (!m_isNew || m_isPosted || m_state != State::Open)
        return;
    const auto now = m_pace.monotonicTime();
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
    const auto places = placesToCover();
    if (!places) {
        // It stays new, until it is asked for again or another one comes.
        lock.unlock();
        return m_delegate.didOutputSample(StreamSample{});
    }
    m_isNew = false;
    m_isReading = true;
    m_placesDelivered = *places;
    const ChangedRows changes = std::exchange(m_changes, std::nullopt);
    // Not under the lock: whoever is called may close this.
    lock.unlock();
    FrameView view{.pixels = m_pixels.data(),
                   .width = m_size.width(),
                   .height = m_size.height(),
                   .stride = m_size.width() * bytesPerPixel};
    if (changes)
        view.changedRows = std::span<const RowRange>(*changes);
    m_delegate.didOutputSample(StreamSample{.image = m_covered.of(view, *places)});
    lock.lock();
    m_isReading = false;
    lock.unlock();
    m_isRead.notify_all();
}

std::optional<QList<QRect>> PictureFeed::placesToCover() const
{
    if (!m_cover)
        return QList<QRect>();
    auto places = m_cover->places(m_size);
    if (!places)
        return m_cover->isReliedOn() ? std::nullopt : std::optional(QList<QRect>());
    // A picture that had to wait shows windows where they were when it came.
    for (const QRect &place : m_placesAtTaking) {
        if (!places->contains(place))
            places->append(place);
    }
    return places;
}

bool PictureFeed::wantsFresherPicture()
{
    const std::scoped_lock lock(m_mutex);
    // While pictures come there is no need to ask for one.
    if (!std::exchange(m_isStill, true) || !m_cover || m_isFresherAsked || m_placesDelivered.isEmpty())
        return false;
    const auto now = m_cover->places(m_size);
    const auto isOver = [&](const QRect &place) { return !now->contains(place); };
    m_isFresherAsked = now && std::ranges::any_of(m_placesDelivered, isOver);
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
