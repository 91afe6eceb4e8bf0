#include "app/doctor/Checks.h"
#include "app/doctor/DoctorFacts.h"
#include "base/Fault.h"

#include <QStringList>

namespace ostrel {

namespace {

/// The screen's facts; null where it could not be looked at.
const ScreenFacts *screenOf(const DoctorFacts &facts)
{
    return facts.screen && *facts.screen ? &**facts.screen : nullptr;
}

Finding noScreen()
{
    return Finding::untried(QStringLiteral("not tried without a display"));
}

bool isSilent(const DoctorFacts &facts)
{
    return !facts.screen || (!*facts.screen && isFault(facts.screen->error(), Fault::TimedOut));
}

QString versionText(const char *name, const ExtensionFacts &extension)
{
    return QStringLiteral("%1 %2.%3").arg(QLatin1String(name)).arg(extension.major).arg(extension.minor);
}

/// What the loss of one of the server's extensions costs.
struct ExtensionWords {
    const char *name;
    const char *cost; ///< what follows from it
    const char *fix;
};

Finding checkExtension(const DoctorFacts &facts, const std::optional<ExtensionFacts> ScreenFacts::*extension,
                       const ExtensionWords &words)
{
    const ScreenFacts *screen = screenOf(facts);
    if (!screen)
        return noScreen();
    if (screen->portal)
        return Finding::ok(QStringLiteral("part of the desktop portal's streams"));
    if (facts.session == SessionKind::Wayland)
        return Finding::ok(QStringLiteral("part of wlr-screencopy"));
    const auto &found = screen->*extension;
    if (found && found->works)
        return Finding::ok(versionText(words.name, *found));
    const QString what = found ? QStringLiteral("%1 does not work here").arg(versionText(words.name, *found))
                               : QStringLiteral("the X server has no %1").arg(QLatin1String(words.name));
    return Finding::missing(QStringLiteral("%1: %2").arg(what, QLatin1String(words.cost)), QLatin1String(words.fix));
}

QString switchOn(const DoctorFacts &facts)
{
    return facts.session == SessionKind::Wayland ? QStringLiteral("switch one on in the desktop's settings")
                                                 : QStringLiteral("xrandr --auto");
}

Finding checkWaylandSession(const DoctorFacts &facts)
{
    if (isSilent(facts))
        return Finding::blocking(
            QStringLiteral("the Wayland compositor of display %1 does not answer").arg(facts.display),
            QStringLiteral("log out and in again"));
    if (!*facts.screen && isFault(facts.screen->error(), Fault::NoScreencopy))
        return Finding::blocking(
            QStringLiteral("a Wayland session whose compositor lets no program take pictures of the screen, without a "
                           "desktop portal that would"),
            QStringLiteral(
                "install xdg-desktop-portal and the part of it that belongs to this desktop; or log out, and "
                "choose sway or an X11 (\"Xorg\") session at the login screen"));
    if (!*facts.screen && isFault(facts.screen->error(), Fault::NoScreenPortal))
        return Finding::blocking(facts.screen->error().localizedDescription, QStringLiteral("unset OSTREL_CAPTURE"));
    if (!*facts.screen)
        return Finding::blocking(facts.screen->error().localizedDescription,
                                 QStringLiteral("run this in a terminal of your graphical session"));
    const QString session = QStringLiteral("Wayland, display %1").arg(facts.display);
    const auto &portal = (*facts.screen)->portal;
    if (!portal)
        return Finding::ok(session);
    const QString why = portal->isChosen ? QStringLiteral(", because OSTREL_CAPTURE says so") : QString();
    return Finding::ok(session + QStringLiteral("; pictures come through the desktop portal%1").arg(why) +
                       (portal->version ? QStringLiteral(" (screen cast version %1)").arg(*portal->version)
                                        : QStringLiteral(", which is started when it is needed")));
}

/// What becomes of private windows in Wayland's pictures of whole screens. A compositor that gives them and tells which
/// window is in front also tells where the windows are.
QString onPrivateWindows(SessionKind session, const ScreenFacts &screen)
{
    if (session != SessionKind::Wayland)
        return {};
    if (!screen.portal && screen.windowManager && screen.windowManager->tellsActiveWindow)
        return QStringLiteral("; in a recording the windows that the privacy rules name are black");
    if (screen.portal)
        return QStringLiteral("; in a recording windows are black that the privacy rules name, if the desktop tells "
                              "their places; otherwise none is taken while one that the privacy rules name is known to "
                              "be in front");
    return QStringLiteral("; here they show every window, so in a recording none is taken while one that "
                          "the privacy rules name is known to be in front");
}

Finding checkPortalPictures(const ScreenFacts &screen)
{
    if (!screen.portal->isGranted)
        return Finding::blocking(
            QStringLiteral("the desktop has not been asked yet whether the screen may be recorded"),
            QStringLiteral("ostrel permissions allow screenRecording"));
    return Finding::untried(QStringLiteral("none was taken: the desktop would tell that the screen is seen%1")
                                .arg(onPrivateWindows(SessionKind::Wayland, screen)));
}

} // namespace

Finding checkSession(const DoctorFacts &facts)
{
    if (facts.session == SessionKind::Wayland)
        return checkWaylandSession(facts);
    if (facts.session == SessionKind::None)
        return Finding::blocking(QStringLiteral("there is none here: neither DISPLAY nor WAYLAND_DISPLAY is set"),
                                 QStringLiteral("run this in a terminal of your graphical X11 session"));
    if (isSilent(facts))
        return Finding::blocking(
            QStringLiteral("the X server of display %1 does not answer; to restart it ends the session")
                .arg(facts.display),
            QStringLiteral("sudo systemctl restart display-manager"));
    if (!*facts.screen)
        return Finding::blocking(facts.screen->error().localizedDescription,
                                 QStringLiteral("run this in a terminal of your graphical X11 session"));
    return Finding::ok(QStringLiteral("X11, display %1").arg(facts.display));
}

Finding checkDisplays(const DoctorFacts &facts)
{
    const ScreenFacts *screen = screenOf(facts);
    if (!screen)
        return noScreen();
    if (screen->portal)
        return Finding::untried(
            QStringLiteral("the desktop tells at the start of a recording which ones are recorded"));
    if (screen->displays.isEmpty())
        return Finding::blocking(QStringLiteral("there is no display that is switched on"), switchOn(facts));
    QStringList sizes;
    for (const DisplayFacts &display : screen->displays)
        sizes.append(QStringLiteral("%1x%2").arg(display.width).arg(display.height));
    sizes.first() += QLatin1String(" (main)");
    return Finding::ok(QStringLiteral("%1: %2").arg(sizes.size()).arg(sizes.join(QLatin1String(", "))));
}

Finding checkPictures(const DoctorFacts &facts)
{
    const ScreenFacts *screen = screenOf(facts);
    if (screen != nullptr && screen->portal)
        return checkPortalPictures(*screen);
    if (!screen || screen->displays.isEmpty())
        return noScreen();
    QStringList faults;
    for (qsizetype i = 0; i < screen->displays.size(); ++i) {
        if (const auto &fault = screen->displays[i].pictureFault)
            faults.append(QStringLiteral("display %1: %2").arg(i + 1).arg(fault->localizedDescription));
    }
    if (faults.isEmpty())
        return Finding::ok(QStringLiteral("one of each display was taken and thrown away%1")
                               .arg(onPrivateWindows(facts.session, *screen)));
    const QString detail = faults.join(QLatin1Char(' '));
    const QString fix = QStringLiteral("log out and in again; \"ostrel doctor\" then tries anew");
    return faults.size() < screen->displays.size() ? Finding::missing(detail, fix) : Finding::blocking(detail, fix);
}

Finding checkSharedMemory(const DoctorFacts &facts)
{
    return checkExtension(facts, &ScreenFacts::sharedMemory,
                          {.name = "MIT-SHM",
                           .cost = "pictures come over the connection, which costs far more time",
                           .fix = "run this on the display's own machine (containers: with --ipc=host)"});
}

Finding checkChangeTracking(const DoctorFacts &facts)
{
    return checkExtension(facts, &ScreenFacts::changeTracking,
                          {.name = "XDamage",
                           .cost = "a still screen costs as much time as a busy one",
                           .fix = "start the X server without \"-extension DAMAGE\""});
}

Finding checkPointer(const DoctorFacts &facts)
{
    return checkExtension(facts, &ScreenFacts::pointer,
                          {.name = "XFixes",
                           .cost = "the pointer is missing from the pictures",
                           .fix = "start the X server without \"-extension XFIXES\""});
}

Finding checkMonitors(const DoctorFacts &facts)
{
    return checkExtension(facts, &ScreenFacts::monitors,
                          {.name = "RandR",
                           .cost = "all monitors count as one display",
                           .fix = "start the X server without \"-extension RANDR\""});
}

namespace {

/// Where the compositor keeps it to itself, programs tell it on the accessibility bus.
Finding frontWindowByPrograms(const DoctorFacts &facts)
{
    const bool isBusThere = facts.bus && facts.bus->state == BusState::Answers;
    const ServiceFacts service = isBusThere ? facts.bus->accessibility : ServiceFacts{};
    if (!service.isRunning && service.canBeStarted)
        return Finding::untried(QStringLiteral("programs tell it on the accessibility bus, which is started when it is "
                                               "needed"));
    if (!service.isRunning || !facts.bus->isAccessibilityGranted)
        return Finding::missing(QStringLiteral("neither this compositor nor an accessibility bus tells which one it "
                                               "is: the journal can't name applications"),
                                QStringLiteral("log out, and choose sway or an X11 (\"Xorg\") session"));
    if (!*facts.bus->isAccessibilityGranted)
        return Finding::missing(QStringLiteral("many programs don't tell it before window titles are allowed: the "
                                               "journal can't name those"),
                                QStringLiteral("ostrel permissions allow recordingContext"));
    return Finding::ok(QStringLiteral("programs tell it on the accessibility bus"));
}

} // namespace

Finding checkFrontWindow(const DoctorFacts &facts)
{
    const ScreenFacts *screen = screenOf(facts);
    if (!screen)
        return noScreen();
    const auto &manager = screen->windowManager;
    const QString name = manager && !manager->name.isEmpty() ? manager->name : QStringLiteral("the window manager");
    if (manager && manager->tellsActiveWindow)
        return Finding::ok(QStringLiteral("%1 tells which one it is").arg(name));
    if (facts.session == SessionKind::Wayland && !manager)
        return frontWindowByPrograms(facts);
    if (facts.session == SessionKind::Wayland)
        return Finding::missing(
            QStringLiteral("%1 does not tell which one it is: the journal can't name applications").arg(name),
            QStringLiteral("log out and in again"));
    const QString detail = QStringLiteral("%1: the journal can't name applications")
                               .arg(manager ? QStringLiteral("%1 does not tell which one it is").arg(name)
                                            : QStringLiteral("no window manager runs that tells which one it is"));
    return Finding::missing(
        detail, installCommand(facts.packages, Package::WindowManager) +
                    (manager ? QStringLiteral(" && (openbox --replace &)") : QStringLiteral(" && (openbox &)")));
}

/// Only another desktop tells more, so there is nothing to be mended.
Finding checkWindowFacts(const DoctorFacts &facts)
{
    if (facts.session == SessionKind::None)
        return noScreen();
    if (!facts.unavailable)
        return Finding::untried(QStringLiteral("the desktop did not answer in time"));
    if (facts.unavailable->isEmpty())
        return Finding::ok(QStringLiteral("this desktop tells the window's title and place, and the pointer's"));
    QStringList missing;
    for (const UnavailableFact &each : *facts.unavailable)
        missing.append(each.text());
    return {.state = Finding::State::Missing, .detail = missing.join(QStringLiteral("; ")), .fix = {}};
}

} // namespace ostrel
