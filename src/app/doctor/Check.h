#pragma once

#include <QJsonArray>
#include <QList>
#include <QString>
#include <optional>

namespace ostrel {

struct DoctorFacts;

/// What one check found out.
struct Finding {
    enum class State {
        Ok,
        Untried,  ///< it could not be tried, or only by starting something; whatever stands in the way says so itself
        Missing,  ///< a recording works without it, and the detail says what it costs
        Blocking, ///< nothing can be recorded until it is mended
    };

    State state = State::Ok;
    QString detail; ///< one line
    /// A command to paste, or what to do where no command does it; nothing where nothing is to be mended.
    std::optional<QString> fix;

    bool operator==(const Finding &) const = default;

    static Finding ok(const QString &detail) { return {.state = State::Ok, .detail = detail, .fix = {}}; }
    static Finding untried(const QString &detail) { return {.state = State::Untried, .detail = detail, .fix = {}}; }
    static Finding missing(const QString &detail, const QString &fix)
    {
        return {.state = State::Missing, .detail = detail, .fix = fix};
    }
    static Finding blocking(const QString &detail, const QString &fix)
    {
        return {.state = State::Blocking, .detail = detail, .fix = fix};
    }
};

struct Check {
    const char *id;    ///< in JSON; stays as it is for ever
    const char *label; ///< for people
    Finding (*judge)(const DoctorFacts &facts);
};

/// All checks, in the order in which people would look for a fault: what the desktop offers, then the program's own
/// parts, then its files, then what runs.
const QList<Check> &allChecks();

struct CheckedFinding {
    Check check;
    Finding finding;
};
using DoctorReport = QList<CheckedFinding>;

DoctorReport examine(const DoctorFacts &facts);

/// Whether nothing stands in the way of a recording.
bool canRecord(const DoctorReport &report);

/// A line for each check, what mends it below, and a last line that sums up.
QString reportText(const DoctorReport &report);
/// `[{check, ok, detail, fix}]`
QJsonArray reportJson(const DoctorReport &report);

} // namespace ostrel
