#include "platform/portal/ScreenCastPortal.h"

#include "base/Fault.h"
#include "platform/portal/PortalCast.h"
#include "platform/portal/PortalMonitors.h"
#include "platform/sessionbus/SessionBusAddress.h"

#include <utility>

namespace ostrel {

/// While it lives, it can be interrupted.
class ScreenCastPortal::Opener
{
public:
    explicit Opener(ScreenCastPortal &portal) : m_portal(portal)
    {
        const std::scoped_lock lock(m_portal.m_mutex);
        m_place = m_portal.m_openers.emplace(m_portal.m_openers.end(), g_cancellable_new());
    }
    Opener(const Opener &) = delete;
    Opener &operator=(const Opener &) = delete;
    ~Opener()
    {
        const std::scoped_lock lock(m_portal.m_mutex);
        m_portal.m_openers.erase(m_place);
    }

    GCancellable *interrupt() const { return m_place->get(); }

private:
    ScreenCastPortal &m_portal;
    std::list<GlibHandle<GCancellable>>::iterator m_place;
};

ScreenCastPortal::ScreenCastPortal(PortalSeams seams) : m_seams(std::move(seams)), m_grants(m_seams.grantFile) {}

ScreenCastPortal::~ScreenCastPortal() = default;

bool ScreenCastPortal::isGranted()
{
    // While somebody else has the turn, what is known is told: they may wait for the user.
    if (const std::unique_lock turn(m_turn, std::try_to_lock); turn.owns_lock())
        inspectCast();
    const std::scoped_lock lock(m_mutex);
    return !m_withdrawal && (m_isOpen || m_grants.isGranted());
}

bool ScreenCastPortal::wouldAsk(const ToldMonitors &now)
{
    if (const std::unique_lock turn(m_turn, std::try_to_lock); turn.owns_lock())
        inspectCast();
    {
        const std::scoped_lock lock(m_mutex);
        if (m_isOpen || m_withdrawal)
            return false;
    }
    return grantToUse(now, Asker::Program).restoreToken.isEmpty();
}

ScreenCastPortal::MonitorChange ScreenCastPortal::compareMonitors(const ToldMonitors &now)
{
    // Whoever has the turn opens a cast, or looks why there is none any more.
    const std::unique_lock turn(m_turn, std::try_to_lock);
    if (!turn.owns_lock() || !m_cast || m_cast->state() != PortalSession::State::Open || now.names.isEmpty())
        return MonitorChange::Untold;
    if (m_cast->monitors().isEmpty() || m_cast->monitors() == now.names)
        return MonitorChange::None;
    // A cast without a token is kept for whoever asks next: there would be no other one.
    const bool canBeReplaced = !m_cast->restoreToken().isEmpty() && opensWithoutQuestion(now);
    return canBeReplaced ? MonitorChange::Granted : MonitorChange::Ungranted;
}

bool ScreenCastPortal::opensWithoutQuestion(const ToldMonitors &now) const
{
    const std::scoped_lock lock(m_mutex);
    return now.areTheShells && !m_withdrawal && !m_isTokenInDoubt && m_grants.hasTokenForJust(now.names);
}

bool ScreenCastPortal::isCastOutdated(const QStringList &monitors) const
{
    return m_cast && m_cast.use_count() == 1 && !monitors.isEmpty() && !m_cast->monitors().isEmpty() &&
           m_cast->monitors() != monitors;
}

Result<std::shared_ptr<PortalCast>> ScreenCastPortal::open(Asker asker)
{
    // From the very beginning: one that comes before the question is up must not get lost.
    const Opener opener(*this);
    const std::scoped_lock turn(m_turn);
    inspectCast(opener.interrupt());
    // First, for an interrupted look leaves a cast behind that may be over.
    if (g_cancellable_is_cancelled(opener.interrupt()) != FALSE)
        return std::unexpected(faultError(Fault::Cancelled));
    if (asker == Asker::User && m_cast && isCastOutdated(readMonitors(m_seams).names))
        letGoOfCast();
    if (m_cast)
        return m_cast;
    if (asker == Asker::User) {
        m_unanswered.reset();
        const std::scoped_lock lock(m_mutex);
        m_withdrawal.reset();
    }
    if (const auto reason = withdrawal())
        return std::unexpected(*reason);
    if (isQuestionTooSoon() && !opensWithoutQuestion(readMonitors(m_seams)))
        return std::unexpected(m_unanswered->error);
    auto cast = openAnew(asker, opener.interrupt());
    if (!cast && isFault(cast.error(), Fault::ScreenCaptureDeclined)) {
        m_grants.drop();
        takeBack(cast.error());
    }
    if (!cast)
        return cast;
    m_unanswered.reset();
    m_cast = *cast;
    const std::scoped_lock lock(m_mutex);
    m_isOpen = true;
    m_isTokenInDoubt = false;
    return cast;
}

Result<std::shared_ptr<PortalCast>> ScreenCastPortal::openAnew(Asker asker, GCancellable *interrupt)
{
    QString token;
    const auto findGrant = [&](const ToldMonitors &now) {
        auto grant = grantToUse(now, asker);
        token = grant.restoreToken;
        return grant;
    };
    auto cast = tryToOpen(findGrant, interrupt);
    // A token that the portal refuses opens nothing ever again; the user can still be asked.
    if (!cast && !token.isEmpty() && isFault(cast.error(), Fault::PictureRefused))
        cast = tryToOpen([](const ToldMonitors &) { return PortalGrantFile::Grant(); }, interrupt);
    if (cast)
        m_grants.keep({.monitors = (*cast)->monitors(), .restoreToken = (*cast)->restoreToken()}, token);
    return cast;
}

PortalGrantFile::Grant ScreenCastPortal::grantToUse(const ToldMonitors &now, Asker asker) const
{
    const std::scoped_lock lock(m_mutex);
    if (m_isTokenInDoubt)
        return {};
    // Where a desktop may ask in spite of a token for just these, the program goes on with what it was granted, and
    // leaves it to the user to be asked about others.
    const bool isSettled = now.areTheShells || asker == Asker::User || m_grants.hasTokenForJust(now.names);
    return isSettled ? m_grants.grantFor(now.names) : m_grants.grantWithin(now.names);
}

Result<std::shared_ptr<PortalCast>> ScreenCastPortal::tryToOpen(const FindGrant &findGrant, GCancellable *interrupt)
{
    PortalSeams seams = m_seams;
    if (seams.busAddress.isEmpty())
        seams.busAddress = sessionBusAddress().toUtf8();
    return PortalCast::open({.seams = std::move(seams),
                             .grantFor = findGrant,
                             .interrupt = interrupt,
                             .onUnanswered = [this](const Error &error) {
                                 m_unanswered = {.error = error, .at = m_seams.monotonicTime()};
                             }});
}

bool ScreenCastPortal::isQuestionTooSoon() const
{
    return m_unanswered && m_seams.monotonicTime() - m_unanswered->at < m_seams.questionPause;
}

void ScreenCastPortal::inspectCast(GCancellable *interrupt)
{
    if (!m_cast)
        return;
    const PortalSession::State state = interrupt != nullptr ? m_cast->explainedState(interrupt) : m_cast->state();
    if (state == PortalSession::State::Open || state == PortalSession::State::Unexplained)
        return;
    m_cast.reset();
    if (state == PortalSession::State::Ended)
        takeBack(faultError(Fault::ScreenSharingEnded));
    const std::scoped_lock lock(m_mutex);
    m_isOpen = false;
    m_isTokenInDoubt = m_isTokenInDoubt || state == PortalSession::State::Doubtful;
}

void ScreenCastPortal::takeBack(const Error &reason)
{
    const std::scoped_lock lock(m_mutex);
    m_withdrawal = reason;
}

std::optional<Error> ScreenCastPortal::withdrawal() const
{
    const std::scoped_lock lock(m_mutex);
    return m_withdrawal;
}

void ScreenCastPortal::releaseUnused()
{
    const std::scoped_lock turn(m_turn);
    // One that was lost is kept: why it was lost may be told a moment later.
    if (!m_cast || m_cast.use_count() > 1 || m_cast->restoreToken().isEmpty() ||
        m_cast->state() != PortalSession::State::Open)
        return;
    letGoOfCast();
}

void ScreenCastPortal::letGoOfCast()
{
    m_cast.reset();
    const std::scoped_lock lock(m_mutex);
    m_isOpen = false;
}

void ScreenCastPortal::interrupt()
{
    const std::scoped_lock lock(m_mutex);
    for (const auto &opener : m_openers)
        g_cancellable_cancel(opener.get());
}

} // namespace ostrel
