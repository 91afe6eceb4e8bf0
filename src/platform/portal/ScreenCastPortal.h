#pragma once

#include "base/Error.h"
#include "platform/portal/PortalGrantFile.h"
#include "platform/portal/PortalSeams.h"
#include "platform/sessionbus/GlibHandles.h"

#include <QStringList>

#include <chrono>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>

namespace ostrel {

class PortalCast;
struct ToldMonitors;

/// The desktop's leave to see its screens, for the whole program: who has it, how it is asked for, how it is kept for
/// the next run. Any thread; those who ask wait for each other.
///
/// The user is asked when somebody opens a cast that no token opens. Once the user has declined, or has ended the
/// sharing, nobody but the user's own request asks again in this run. A desktop may end the sharing when a monitor was
/// unplugged, in the very words of a user who ends it. Where it did both in one moment, the monitors that are left are
/// seen by what the user has granted for just these; where the user may have done so, no token speaks for the user, who
/// is asked. Nor is a question that nobody has answered put again at once, however often the program tries.
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
    bool wouldAsk(const ToldMonitors &now);

    enum class MonitorChange {
        Untold,    ///< just now
        None,      ///< as far as anybody tells
        Granted,   ///< to other ones, and what opens a cast of them without a question is kept
        Ungranted, ///< to other ones, of which the user may have to be asked
    };
    /// What has become of the open cast's monitors. Asks nobody.
    MonitorChange compareMonitors(const ToldMonitors &now);

    /// Whether it is certain that a cast of these monitors could be opened without a question: by a token for just
    /// these, on a desktop that looks at nothing else. Asks nobody.
    bool opensWithoutQuestion(const ToldMonitors &now) const;

    enum class Asker {
        Program,
        User, ///< a refusal of before counts no more
    };
    /// The open cast, or a new one. May block for as long as the user thinks; `interrupt` ends that.
    /// @return the errors of `PortalCast::open`; Fault::ScreenCaptureDeclined, ScreenSharingEnded and
    ///         ScreenQuestionUnanswered without asking, too
    Result<std::shared_ptr<PortalCast>> open(Asker asker);

    /// Ends the cast when nobody else holds it and a token can open the next one, so that the desktop doesn't go on
    /// telling that its screens are seen.
    void releaseUnused();

    /// Has those who are about to open a cast, and may wait for the user, or for each other, wait no more: they get
    /// Fault::Cancelled. Their question is withdrawn; that is no refusal.
    void interrupt();

private:
    class Opener;
    Result<std::shared_ptr<PortalCast>> openAnew(Asker asker, GCancellable *interrupt);
    using FindGrant = std::function<PortalGrantFile::Grant(const ToldMonitors &now)>;
    Result<std::shared_ptr<PortalCast>> tryToOpen(const FindGrant &findGrant, GCancellable *interrupt);
    /// Lets go of a cast that has ended. May wait a moment for the reason; only who can be interrupted waits.
    void inspectCast(GCancellable *interrupt = nullptr);
    /// Nobody uses the cast, and the monitors are others by now.
    bool isCastOutdated(const QStringList &monitors) const;
    PortalGrantFile::Grant grantToUse(const ToldMonitors &now, Asker asker) const;
    bool isQuestionTooSoon() const;
    void letGoOfCast();
    void takeBack(const Error &reason);
    std::optional<Error> withdrawal() const;

    const PortalSeams m_seams;
    const PortalGrantFile m_grants;

    std::mutex m_turn; ///< of those who use the cast; held while the user thinks
    std::shared_ptr<PortalCast> m_cast;
    struct UnansweredQuestion {
        Error error;
        std::chrono::milliseconds at;
    };
    std::optional<UnansweredQuestion> m_unanswered; ///< the last one, unless it was answered

    mutable std::mutex m_mutex; ///< of all below; never held for long
    bool m_isOpen = false;
    bool m_isTokenInDoubt = false;                 ///< it may not be what the user wants any more
    std::optional<Error> m_withdrawal;             ///< why nobody asks
    std::list<GlibHandle<GCancellable>> m_openers; ///< those who are about to open a cast
};

} // namespace ostrel
