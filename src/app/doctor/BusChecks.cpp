#include "app/doctor/Checks.h"
#include "app/doctor/DoctorFacts.h"

namespace ostrel {

namespace {

const QString allowContext = QStringLiteral("ostrel permissions allow recordingContext");
const QString startAgain = QStringLiteral("log out and in again");
const QString fileInstead = QStringLiteral("secrets lie in a file of yours instead");

bool answers(const DoctorFacts &facts)
{
    return facts.bus && facts.bus->state == BusState::Answers;
}

Finding noBus()
{
    return Finding::untried(QStringLiteral("not tried without a session bus"));
}

QString notRunning()
{
    return QStringLiteral("installed, not running; it is started when it is needed");
}

Finding keyringOf(KeyringState state)
{
    switch (state) {
    case KeyringState::Ready:
        return Finding::ok(QStringLiteral("unlocked; it keeps the secrets"));
    case KeyringState::Locked:
        return Finding::missing(QStringLiteral("locked: %1").arg(fileInstead),
                                QStringLiteral("unlock it in your keyring manager, or log out and in again"));
    case KeyringState::NoDefaultCollection:
        return Finding::missing(QStringLiteral("it has no default keyring: %1").arg(fileInstead),
                                QStringLiteral("make one in your keyring manager, and set it as the default"));
    case KeyringState::ServiceSilent:
        return Finding::missing(QStringLiteral("it does not answer: %1").arg(fileInstead), startAgain);
    case KeyringState::NoService:
    case KeyringState::NoBus:
    case KeyringState::BusSilent:
    case KeyringState::Failed:
        break;
    }
    return Finding::missing(QStringLiteral("it cannot be used: %1").arg(fileInstead), startAgain);
}

} // namespace

Finding checkSessionBus(const DoctorFacts &facts)
{
    const QString cost = QStringLiteral("no window titles, no keyring");
    const QString ownBus = QStringLiteral("dbus-run-session -- ostrel record");
    if (!facts.bus || facts.bus->state == BusState::Silent)
        return Finding::missing(QStringLiteral("it does not answer: %1").arg(cost), startAgain);
    switch (facts.bus->state) {
    case BusState::Answers:
        return Finding::ok(QStringLiteral("answers"));
    case BusState::NoAddress:
        return Finding::missing(QStringLiteral("there is none: %1").arg(cost), ownBus);
    case BusState::Unreachable:
    case BusState::Silent:
        break;
    }
    return Finding::missing(QStringLiteral("nobody answers at its address: %1").arg(cost), ownBus);
}

Finding checkAccessibilityService(const DoctorFacts &facts)
{
    if (!answers(facts))
        return noBus();
    const ServiceFacts &service = facts.bus->accessibility;
    if (service.isRunning)
        return facts.bus->isAccessibilityGranted
                   ? Finding::ok(QStringLiteral("its service answers"))
                   : Finding::missing(QStringLiteral("its service does not answer: no window titles"), startAgain);
    if (service.canBeStarted)
        return Finding::untried(notRunning());
    return Finding::missing(QStringLiteral("its service is not installed: no window titles"),
                            installCommand(facts.packages, Package::Accessibility));
}

Finding checkAccessibilityGrant(const DoctorFacts &facts)
{
    if (!answers(facts))
        return noBus();
    const ServiceFacts &service = facts.bus->accessibility;
    if (service.isRunning ? !facts.bus->isAccessibilityGranted : !service.canBeStarted)
        return Finding::untried(QStringLiteral("not tried without the accessibility service"));
    if (facts.bus->isAccessibilityGranted.value_or(false))
        return Finding::ok(QStringLiteral("allowed: they are recorded"));
    return Finding::missing(QStringLiteral("not allowed: the journal names applications alone"), allowContext);
}

Finding checkKeyring(const DoctorFacts &facts)
{
    if (!answers(facts))
        return noBus();
    if (facts.keyring)
        return keyringOf(*facts.keyring);
    if (facts.bus->keyring.canBeStarted)
        return Finding::untried(notRunning());
    return Finding::missing(QStringLiteral("there is none: %1").arg(fileInstead),
                            installCommand(facts.packages, Package::Keyring));
}

} // namespace ostrel
