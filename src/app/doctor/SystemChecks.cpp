#include "app/doctor/Checks.h"
#include "app/doctor/DoctorFacts.h"

namespace ostrel {

namespace {

const QString cost =
    QStringLiteral("the last pictures before a sleep or shutdown may be lost, and a lock is noticed only "
                   "where a screen saver tells");

} // namespace

Finding checkSleep(const DoctorFacts &facts)
{
    const QString startLogind = QStringLiteral("sudo systemctl start systemd-logind");
    if (!facts.systemBus || facts.systemBus->state == BusState::Silent)
        return Finding::missing(QStringLiteral("the system bus does not answer: %1").arg(cost),
                                QStringLiteral("restart the machine"));
    if (facts.systemBus->state != BusState::Answers)
        return Finding::missing(
            QStringLiteral("there is no system bus: %1").arg(cost),
            QStringLiteral("run it in a desktop session of this machine, not in a container or over SSH"));
    if (!facts.systemBus->isLogindThere)
        return Finding::missing(QStringLiteral("logind is not on the system bus: %1").arg(cost), startLogind);
    if (!facts.systemBus->doesLogindAnswer)
        return Finding::missing(QStringLiteral("logind does not answer: %1").arg(cost),
                                QStringLiteral("sudo systemctl restart systemd-logind"));
    return Finding::ok(QStringLiteral("logind tells of sleep, shutdown and the lock"));
}

} // namespace ostrel
