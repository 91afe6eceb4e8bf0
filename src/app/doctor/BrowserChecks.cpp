#include "app/doctor/Checks.h"
#include "app/doctor/DoctorFacts.h"

#include <QStringList>

namespace ostrel {

// Neither state is a fault: with remote debugging on more is known, and with it off nobody else can use it. So none of
// them has a fix, and nobody is told to switch it on.
Finding checkBrowserTabs(const DoctorFacts &facts)
{
    if (facts.debuggedBrowsers.isEmpty())
        return Finding::ok(QStringLiteral("remote debugging is off in every browser: none is asked for its tab"));
    QStringList browsers;
    for (const auto &[process, port] : facts.debuggedBrowsers)
        browsers.append(QStringLiteral("process %1 on port %2").arg(process).arg(port));
    const bool isAllowed = facts.bus && facts.bus->isAccessibilityGranted.value_or(false);
    const QString use = isAllowed ? QStringLiteral("a browser is asked there for its front tab")
                                  : QStringLiteral("nothing is asked there while window titles are not allowed");
    return Finding::ok(
        QStringLiteral("remote debugging is on in %1: %2; any program on this machine can drive it there")
            .arg(browsers.join(QLatin1String(", ")), use));
}

} // namespace ostrel
