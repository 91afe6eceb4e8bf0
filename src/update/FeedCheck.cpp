#include "update/FeedCheck.h"

#include "base/Clock.h"
#include "base/Fault.h"
#include "update/UpdateFault.h"
#include "update/UpdateMemory.h"

namespace ostrel {

namespace {

/// For the whole feed: a server that drips could hold a check for ever.
constexpr std::chrono::seconds deadline{60};

} // namespace

Task<Result<FeedAnswer>> FeedCheck::ask(InstalledProgram program, std::stop_token stop)
{
    const BundleInfo &bundle = program.bundle;
    if (!bundle.feedUrl)
        co_return std::unexpected(updateError(UpdateFault::NoFeed));
    const auto installed = program.version();
    if (!installed)
        co_return std::unexpected(updateError(UpdateFault::NoVersion));
    const auto key = UpdateKey::parse(bundle.publicKey.value_or(QString()));
    if (!key)
        co_return std::unexpected(updateError(UpdateFault::NoPublicKey));
    const QUrl address(*bundle.feedUrl, QUrl::StrictMode);
    const auto bytes = co_await fetch(address, stop);
    if (!bytes)
        co_return std::unexpected(bytes.error());
    const auto feed = readFeed(bytes->bytes, *key, address);
    if (!feed)
        co_return std::unexpected(feed.error());
    if (const auto admitted = m_memory.admit(*feed, *key, m_clock.nowMs()); !admitted)
        co_return std::unexpected(admitted.error());
    co_return FeedAnswer{newestRelease(*feed, thisPlatform(), *installed)};
}

Task<Result<HttpBytes>> FeedCheck::fetch(QUrl address, std::stop_token stop)
{
    const auto overdue = std::make_shared<bool>(false);
    const auto endDeadline = m_clock.schedule(deadline, [overdue] { *overdue = true; });
    auto bytes = co_await fetchUntil(std::move(address), overdue, std::move(stop));
    endDeadline();
    co_return bytes;
}

Task<Result<HttpBytes>> FeedCheck::fetchUntil(QUrl address, std::shared_ptr<bool> overdue, std::stop_token stop)
{
    auto answer = co_await m_http.get(std::move(address), {}, stop);
    if (!answer)
        co_return std::unexpected(answer.error());
    if (answer->status() != 200)
        co_return std::unexpected(updateError(UpdateFault::ServerRefused, QString::number(answer->status())));
    HttpBytes all;
    while (true) {
        const auto piece = co_await answer->piece(stop);
        if (!piece)
            co_return std::unexpected(piece.error());
        if (piece->bytes.isEmpty())
            co_return all;
        all.bytes += piece->bytes;
        if (all.bytes.size() > longestFeed)
            co_return std::unexpected(updateError(UpdateFault::FeedTooLong));
        if (*overdue)
            co_return std::unexpected(faultError(Fault::TimedOut));
    }
}

} // namespace ostrel
