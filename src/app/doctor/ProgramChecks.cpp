#include "app/doctor/Checks.h"
#include "app/doctor/DoctorFacts.h"
#include "app/doctor/ShellWord.h"

#include <QDateTime>
#include <QVersionNumber>

namespace ostrel {

namespace {

/// What the observer's bundle is built for.
const QVersionNumber oldestNode(18, 15);

} // namespace

Finding checkObserverProgram(const DoctorFacts &facts)
{
    const ObserverRootFacts &root = facts.observerRoot;
    if (root.folder && root.isComplete)
        return Finding::ok(QStringLiteral("found in %1").arg(shownPath(*root.folder)));
    if (root.isFromOverride)
        return Finding::blocking(QStringLiteral("MORAVEL_REPO_ROOT is %1, which holds no observer")
                                     .arg(shownPath(root.folder.value_or(QString()))),
                                 QStringLiteral("unset MORAVEL_REPO_ROOT"));
    return Finding::blocking(QStringLiteral("its program was not found beside this one"),
                             QStringLiteral("install this program again, with its share/ostrel folder"));
}

Finding checkNode(const DoctorFacts &facts)
{
    const NodeFacts &node = facts.node;
    const QString install = installCommand(facts.packages, Package::Node);
    if (node.path.isEmpty())
        return Finding::blocking(QStringLiteral("not found, and the observer runs on it"), install);
    if (node.version.isEmpty())
        return Finding::blocking(QStringLiteral("%1 does not tell its version").arg(shownPath(node.path)), install);
    const QString what = QStringLiteral("%1 in %2").arg(node.version, shownPath(node.path));
    if (QVersionNumber::fromString(node.version) < oldestNode)
        return Finding::blocking(QStringLiteral("%1 is too old: %2 is needed").arg(what, oldestNode.toString()),
                                 install);
    return Finding::ok(what);
}

Finding checkPort(const DoctorFacts &facts)
{
    const ObserverAnswer &observer = facts.observer;
    if (observer.reach == ObserverReach::NotRunning)
        return Finding::ok(QStringLiteral("%1 is free").arg(observer.port));
    if (observer.reach == ObserverReach::Answers)
        return Finding::ok(QStringLiteral("%1: the observer answers").arg(observer.port));
    const Advice advice = adviceOn(observer);
    return Finding::blocking(advice.sentence, advice.command.value_or(QStringLiteral("ostrel doctor")));
}

Finding checkRecorder(const DoctorFacts &facts)
{
    if (!facts.recorder)
        return Finding::ok(QStringLiteral("none runs at the moment"));
    const QDateTime since = QDateTime::fromString(facts.recorder->since, Qt::ISODate);
    return Finding::ok(
        QStringLiteral("process %1 has been recording since %2")
            .arg(facts.recorder->processId)
            .arg(since.isValid() ? since.toString(QStringLiteral("yyyy-MM-dd HH:mm")) : facts.recorder->since));
}

} // namespace ostrel
