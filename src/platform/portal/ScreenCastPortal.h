#pragma once

#include "base/Error.h"
#include "platform/portal/PortalGrantFile.h"
#include "platform/portal/PortalSeams.h"
#include "platform/sessionbus/GlibHandles.h"

#include <list>
#include <memory>
#include <mutex>
#include <optional>

namespace ostrel {

class PortalCast;

/// The desktop's leave to see its screens, for the whole program: who has it, how it is asked for, how it is kept for
/// the next run. Any thread; those who ask wait for each other.
///
/// The user is asked when somebody opens a cast that no token opens. Once the user has declined, or has ended the
/// sharing, nobody but the user's own request asks again in this run.
class ScreenCastPortal
{
public:
    explicit ScreenCastPortal(PortalSeams seams = {});
    ScreenCastPortal(const ScreenCastPortal &) = delete;
    ScreenCastPortal &operator=(const ScreenCastPortal &) = delete;
    ~ScreenCastPortal();

    const PortalSeams &seams() const { return m_seams; }

    /// Whether a cast can be had without anybody's refusal: one is open, or what was granted before is kept, and nobody
    /// has taken it back in this run. Asks nobody.
    bool isGranted();

    /// Whether the program could open a cast only by the user's answer to a question. Asks nobody.
    bool wouldAsk();

    enum class Asker {
        Program,
        User, ///< a refusal of before counts no more
    };
    /// The open cast, or a new one. May block for as long as the user thinks; `interrupt` ends that.
    /// @return the errors of `PortalCast::open`; Fault::ScreenCaptureDeclined and ScreenSharingEnded without asking
    Result<std::shared_ptr<PortalCast>> open(Asker asker);

    /// Ends the cast when nobody else holds it and a token can open the next one, so that the desktop doesn't go on
    /// telling that its screens are seen.
    void releaseUnused();

    /// Has those who are about to open a cast, and may wait for the user, or for each other, wait no more: they get
    /// Fault::Cancelled. Their question is withdrawn; that is no refusal.
    void interrupt();

private:
    class Opener;
    Result<std::shared_ptr<PortalCast>> openAnew(GCancellable *interrupt);
    Result<std::shared_ptr<PortalCast>> tryToOpen(const QString &restoreToken, GCancellable *interrupt);
    /// Lets go of a cast that has ended.
    void inspectCast();
    void takeBack(const Error &reason);
    std::optional<Error> withdrawal() const;

    const PortalSeams m_seams;
    const PortalGrantFile m_grants;

    std::mutex m_turn; ///< of those who use the cast; held while the user thinks
    std::shared_ptr<PortalCast> m_cast;

    mutable std::mutex m_mutex; ///< of all below; never held for long
    bool m_isOpen = false;
    std::optional<Error> m_withdrawal;             ///< why nobody asks
    std::list<GlibHandle<GCancellable>> m_openers; ///< those who are about to open a cast
};

} // namespace ostrel
