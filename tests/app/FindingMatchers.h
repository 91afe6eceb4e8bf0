#pragma once

#include "app/doctor/Check.h"
#include "support/Printers.h"

#include <gmock/gmock.h>

namespace ostrel {

inline void PrintTo(const Finding &finding, std::ostream *out)
{
    *out << "state " << int(finding.state) << ", \"" << finding.detail.toStdString() << "\", fix \""
         << finding.fix.value_or(QStringLiteral("(none)")).toStdString() << '"';
}

/// A finding in that state whose detail holds these words, and whose fix holds those: "" for none.
inline testing::Matcher<Finding> isFinding(Finding::State state, const std::string &detail, const std::string &fix)
{
    const auto text = [](const Finding &finding) { return finding.detail.toStdString(); };
    const auto fixText = [](const Finding &finding) { return finding.fix.value_or(QString()).toStdString(); };
    const auto hasFix = [](const Finding &finding) { return finding.fix.has_value(); };
    return testing::AllOf(testing::Field(&Finding::state, state), testing::ResultOf(text, testing::HasSubstr(detail)),
                          testing::ResultOf(fixText, testing::HasSubstr(fix)), testing::ResultOf(hasFix, !fix.empty()));
}

inline testing::Matcher<Finding> isOk(const std::string &detail)
{
    return isFinding(Finding::State::Ok, detail, "");
}
inline testing::Matcher<Finding> isUntried(const std::string &detail)
{
    return isFinding(Finding::State::Untried, detail, "");
}
inline testing::Matcher<Finding> isMissing(const std::string &detail, const std::string &fix)
{
    return isFinding(Finding::State::Missing, detail, fix);
}
inline testing::Matcher<Finding> isBlocking(const std::string &detail, const std::string &fix)
{
    return isFinding(Finding::State::Blocking, detail, fix);
}

} // namespace ostrel
