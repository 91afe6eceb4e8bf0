#include "app/Json.h"
#include "app/doctor/Check.h"

#include <QJsonObject>

#include <algorithm>

namespace ostrel {

namespace {

constexpr int stateWidth = 9;
constexpr int labelWidth = 18;

QString stateText(Finding::State state)
{
    switch (state) {
    case Finding::State::Ok:
        return QStringLiteral("ok");
    case Finding::State::Untried:
        return QStringLiteral("untried");
    case Finding::State::Missing:
        return QStringLiteral("missing");
    case Finding::State::Blocking:
        return QStringLiteral("blocking");
    }
    return {};
}

qsizetype count(const DoctorReport &report, Finding::State state)
{
    return std::ranges::count_if(report, [state](const auto &each) { return each.finding.state == state; });
}

QString summary(const DoctorReport &report)
{
    if (!canRecord(report))
        return QStringLiteral("Recording is impossible until what is marked \"blocking\" is mended.");
    const qsizetype missing = count(report, Finding::State::Missing);
    if (missing == 0)
        return QStringLiteral("Recording is possible, and nothing is missing.");
    return QStringLiteral("Recording is possible; %1 missing.")
        .arg(missing == 1 ? QStringLiteral("one thing is") : QStringLiteral("%1 things are").arg(missing));
}

} // namespace

DoctorReport examine(const DoctorFacts &facts)
{
    DoctorReport report;
    for (const Check &check : allChecks())
        report.append({.check = check, .finding = check.judge(facts)});
    return report;
}

bool canRecord(const DoctorReport &report)
{
    return count(report, Finding::State::Blocking) == 0;
}

QString reportText(const DoctorReport &report)
{
    QString text;
    for (const auto &[check, finding] : report) {
        text += QStringLiteral("%1%2%3\n")
                    .arg(stateText(finding.state), -stateWidth)
                    .arg(QLatin1String(check.label), -labelWidth)
                    .arg(finding.detail);
        if (finding.fix)
            text += QStringLiteral("%1fix: %2\n").arg(QString(), stateWidth + labelWidth).arg(*finding.fix);
    }
    return text + QLatin1Char('\n') + summary(report) + QLatin1Char('\n');
}

QJsonArray reportJson(const DoctorReport &report)
{
    QJsonArray array;
    for (const auto &[check, finding] : report)
        array.append(QJsonObject{{QStringLiteral("check"), QLatin1String(check.id)},
                                 {QStringLiteral("ok"), finding.state == Finding::State::Ok},
                                 {QStringLiteral("detail"), finding.detail},
                                 {QStringLiteral("fix"), orNull(finding.fix)}});
    return array;
}

} // namespace ostrel
