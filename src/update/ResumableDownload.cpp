#include "update/ResumableDownload.h"

#include "base/Clock.h"
#include "base/Fault.h"
#include "base/SerialQueue.h"
#include "base/Text.h"
#include "update/UpdateFault.h"

#include <QRegularExpression>

#include <algorithm>
#include <utility>

namespace ostrel {

namespace {

using namespace std::chrono_literals;

constexpr int attemptsWithoutProgress = 5;
constexpr std::chrono::milliseconds pauseBetweenAttempts = 2s;
/// About what the slowest connection brings that anybody waits for. A server that drips could hold a download for ever,
/// and with it every later look at the feed.
constexpr qint64 leastPerMinute = qint64(60) * 1024;

/// How much an attempt has to bring for the ones before it to be forgotten.
qint64 leastProgress(qint64 size)
{
    constexpr qint64 parts = 100;
    return std::clamp<qint64>(size / parts, 1, leastPerMinute);
}

/// Watches over the speed of a download, by the wall clock. Time asleep counts: the connection has hardly outlived it.
class Pace
{
public:
    explicit Pace(Clock &clock) : m_clock(clock), m_sinceMs(clock.nowMs()) {}

    /// @return whether there is still enough to come of it
    bool take(qint64 bytes)
    {
        m_bytes += bytes;
        const qint64 nowMs = m_clock.nowMs();
        if (nowMs >= m_sinceMs && nowMs - m_sinceMs < std::chrono::milliseconds(1min).count())
            return true;
        m_sinceMs = nowMs;
        return std::exchange(m_bytes, 0) >= leastPerMinute;
    }

private:
    Clock &m_clock;
    qint64 m_sinceMs;
    qint64 m_bytes = 0;
};

/// What another attempt may mend: the connection. A full disk or a refusal stays what it is.
bool isPassing(const Error &error)
{
    return isFault(error, Fault::ConnectionClosed) || isFault(error, Fault::ConnectionRefused) ||
           isFault(error, Fault::TimedOut) || isFault(error, Fault::NetworkFailed);
}

HttpClient::Headers rangeFrom(qint64 present, const QByteArray &entityTag)
{
    if (present == 0)
        return {};
    HttpClient::Headers headers{{"Range", "bytes=" + QByteArray::number(present) + '-'}};
    // With it the server sends the whole file where it is another one by now.
    if (!entityTag.isEmpty())
        headers.emplaceBack("If-Range", entityTag);
    return headers;
}

struct ContentRange {
    qint64 first = 0;
    std::optional<qint64> total;
};

std::optional<ContentRange> contentRange(const QByteArray &header)
{
    static const QRegularExpression form(QStringLiteral("\\Abytes ([0-9]{1,18})-[0-9]{1,18}/([0-9]{1,18}|\\*)\\z"));
    const auto match = form.match(QString::fromLatin1(header));
    if (!match.hasMatch())
        return std::nullopt;
    return ContentRange{.first = match.captured(1).toLongLong(), .total = parseInteger(match.captured(2))};
}

/// What is there of a download, and of what.
struct Present {
    qint64 size = 0;
    QByteArray entityTag;
};

} // namespace

/// What the head of an answer says about its body.
struct ResumableDownload::Head {
    int status = 0;
    std::optional<ContentRange> range;
    std::optional<qint64> contentLength;
    QByteArray strongTag; ///< only a strong one promises the same bytes

    static Head of(const HttpAnswerStream &answer)
    {
        const QByteArray tag = answer.header("ETag");
        return {.status = answer.status(),
                .range = contentRange(answer.header("Content-Range")),
                .contentLength = parseInteger(QString::fromLatin1(answer.header("Content-Length"))),
                .strongTag = tag.startsWith('"') ? tag : QByteArray()};
    }

    /// The length of the whole file, where it is told.
    std::optional<qint64> wholeLength() const
    {
        if (status == 200)
            return contentLength;
        return status == 206 && range ? range->total : std::nullopt;
    }
};

template <class F>
Task<std::invoke_result_t<F>> ResumableDownload::onWorker(F job, std::stop_token stop)
{
    auto outcome = co_await m_worker.run(std::move(stop), std::move(job));
    if (!outcome)
        co_return std::unexpected(faultError(Fault::Cancelled));
    co_return *std::move(outcome);
}

Task<Result<PartFile>> ResumableDownload::fetch(Release release, QString directory, Progress progress,
                                                std::stop_token stop)
{
    const PartFile file(directory + QLatin1Char('/') + QString::fromLatin1(release.sha256));
    const auto cleaned = co_await onWorker([file] { return file.removeOthers(); }, stop);
    if (!cleaned)
        co_return std::unexpected(cleaned.error());
    qint64 most = 0;
    const auto watched = [&most, &progress](qint64 received) {
        most = std::max(most, received);
        progress(received);
    };
    for (int fruitless = 0; fruitless < attemptsWithoutProgress;) {
        const qint64 before = most;
        const auto outcome = co_await attempt(release, file, watched, stop);
        if (outcome)
            co_return file;
        if (!isPassing(outcome.error()))
            co_return std::unexpected(outcome.error());
        fruitless = most - before >= leastProgress(release.size) ? 0 : fruitless + 1;
        if (!co_await m_clock.sleepFor(pauseBetweenAttempts, stop))
            co_return std::unexpected(faultError(Fault::Cancelled));
    }
    co_return std::unexpected(updateError(UpdateFault::DownloadInterrupted, release.version.text()));
}

Task<Result<>> ResumableDownload::attempt(Release release, PartFile file, Progress progress, std::stop_token stop)
{
    const auto present = co_await onWorker(
        [file] { return Result<Present>({.size = file.size(), .entityTag = file.entityTag()}); }, stop);
    if (!present)
        co_return std::unexpected(present.error());
    if (present->size == release.size)
        co_return Result<>();
    auto answer = co_await m_http.get(release.url, rangeFrom(present->size, present->entityTag), stop);
    if (!answer)
        co_return std::unexpected(answer.error());
    const auto start = co_await prepare(release, file, Head::of(*answer), present->size, stop);
    if (!start)
        co_return std::unexpected(start.error());
    co_return co_await receive(release, file, *std::move(answer), *start, progress, stop);
}

/// Makes the file ready for the body that comes.
/// @return from which byte of the file on the body is
Task<Result<qint64>> ResumableDownload::prepare(Release release, PartFile file, Head head, qint64 present,
                                                std::stop_token stop)
{
    if (head.status != 200 && head.status != 206 && head.status != 416)
        co_return std::unexpected(updateError(UpdateFault::ServerRefused, QString::number(head.status)));
    if (head.wholeLength().value_or(release.size) != release.size)
        co_return std::unexpected(updateError(UpdateFault::ArchiveSizeWrong));
    if (present > 0 && head.status == 206 && head.range && head.range->first == present)
        co_return present;
    if (head.status != 200) {
        // It does not go on where we are: the next attempt asks for the whole.
        const auto removed = co_await onWorker([file] { return file.remove(); }, stop);
        co_return std::unexpected(removed ? faultError(Fault::ConnectionClosed) : removed.error());
    }
    const auto reset = co_await onWorker([file, tag = head.strongTag] { return file.reset(tag); }, stop);
    if (!reset)
        co_return std::unexpected(reset.error());
    co_return 0;
}

Task<Result<>> ResumableDownload::receive(Release release, PartFile file, HttpAnswerStream answer, qint64 present,
                                          Progress progress, std::stop_token stop)
{
    Pace pace(m_clock);
    for (qint64 received = present;;) {
        const auto piece = co_await answer.piece(stop);
        if (!piece)
            co_return std::unexpected(piece.error());
        const bool ended = piece->bytes.isEmpty();
        received += piece->bytes.size();
        // An end that came too early is a connection that was cut, where the head told no length to know it by.
        if (ended && received < release.size)
            co_return std::unexpected(faultError(Fault::ConnectionClosed));
        if (received > release.size) {
            const auto removed = co_await onWorker([file] { return file.remove(); }, stop);
            co_return std::unexpected(removed ? updateError(UpdateFault::ArchiveSizeWrong) : removed.error());
        }
        if (ended)
            co_return Result<>();
        const auto written = co_await onWorker([file, bytes = piece->bytes] { return file.append(bytes); }, stop);
        if (!written)
            co_return written;
        progress(received);
        if (!pace.take(piece->bytes.size()))
            co_return std::unexpected(faultError(Fault::TimedOut));
    }
}

} // namespace ostrel
