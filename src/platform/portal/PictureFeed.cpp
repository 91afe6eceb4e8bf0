#include "platform/portal/PictureFeed.h"

#include "base/Fault.h"

#include <algorithm>
#include <utility>

namespace ostrel {

namespace {

constexpr std::ptrdiff_t bytesPerPixel = 4;

/// Ascending and apart.
std::vector<RowRange> merged(std::vector<RowRange> rows)
{
    std::ranges::sort(rows, {}, &RowRange::begin);
    std::vector<RowRange> apart;
    for (const RowRange &next : rows) {
        if (!apart.empty() && next.begin <= apart.back().end)
            apart.back().end = std::max(apart.back().end, next.end);
        else
            apart.push_back(next);
    }
    return apart;
}

} // namespace

PictureFeed::PictureFeed(QSize size, QString name, DisplaySource::StreamDelegate delegate, Post post, Pace pace)
    : m_displaySize(size), m_name(std::move(name)), m_delegate(std::move(delegate)), m_post(std::move(post)),
      m_pace(std::move(pace))
{}

void PictureFeed::take(const ProducedPicture &picture)
{
    const QSize size = picture.conversion.uprightSize(picture.source.size);
    if (picture.source.size != m_displaySize && size != m_displaySize)
        return fail(faultError(Fault::DisplayResized, m_name));
    std::unique_lock lock(m_mutex);
    m_isRead.wait(lock, [this] { return !m_isReading || m_state != State::Open; });
    if (m_state != State::Open)
        return;
    const Changes changes = rowsOf(picture);
    m_size = size;
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

PictureFeed::Changes PictureFeed::rowsOf(const ProducedPicture &picture) const
{
    if (!picture.changes || m_isMissed || m_pixels.empty() || picture.conversion != m_conversion ||
        picture.conversion.uprightSize(picture.source.size) != m_size)
        return std::nullopt;
    std::vector<RowRange> rows;
    for (const QRect &rectangle : *picture.changes) {
        if (const auto range = picture.conversion.uprightRows(rectangle, picture.source.size))
            rows.push_back(*range);
    }
    return merged(std::move(rows));
}

void PictureFeed::note(const Changes &changes)
{
    if (!changes || m_pixels.empty() || (m_isNew && !m_changes)) {
        m_changes.reset();
        return;
    }
    auto all = m_isNew ? *m_changes : std::vector<RowRange>();
    all.insert(all.end(), changes->begin(), changes->end());
    m_changes = merged(std::move(all));
}

void PictureFeed::copy(const ProducedPicture &picture, const Changes &changes)
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
    Changes changes;
    {
        const std::scoped_lock lock(m_mutex);
        m_isPosted = false;
        if (m_state != State::Open)
            return;
        m_isNew = false;
        m_isReading = true;
        changes = std::move(m_changes);
    }
    // Not under the lock: whoever is called may close this.
    FrameView view{.pixels = m_pixels.data(),
                   .width = m_size.width(),
                   .height = m_size.height(),
                   .stride = m_size.width() * bytesPerPixel};
    if (changes)
        view.changedRows = std::span<const RowRange>(*changes);
    m_delegate.didOutputSample(StreamSample{.image = view});
    {
        const std::scoped_lock lock(m_mutex);
        m_isReading = false;
    }
    m_isRead.notify_all();
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
