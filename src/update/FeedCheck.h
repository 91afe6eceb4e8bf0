#pragma once

#include "update/Feed.h"
#include "update/HttpClient.h"
#include "update/InstalledProgram.h"

#include <memory>
#include <optional>

namespace ostrel {

class UpdateMemory;

/// What the feed says to an installed version.
struct FeedAnswer {
    /// The newest release for this machine; nothing when what is installed is the newest.
    std::optional<Release> newer;
};

/// Asks the feed of a program whether there is a newer version. Main thread.
class FeedCheck
{
public:
    /// All outlive this object.
    FeedCheck(HttpClient &http, UpdateMemory &memory, Clock &clock) : m_http(http), m_memory(memory), m_clock(clock) {}

    /// Besides the errors of the feed and the network: NoFeed, NoVersion and NoPublicKey where the bundle lacks them.
    Task<Result<FeedAnswer>> ask(InstalledProgram program, std::stop_token stop);

private:
    Task<Result<HttpBytes>> fetch(QUrl address, std::stop_token stop);
    Task<Result<HttpBytes>> fetchUntil(QUrl address, std::shared_ptr<bool> overdue, std::stop_token stop);

    HttpClient &m_http;
    UpdateMemory &m_memory;
    Clock &m_clock;
};

} // namespace ostrel
