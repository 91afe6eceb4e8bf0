#include "capture/DisplayFilter.h"

#include "support/Printers.h"

#include <gtest/gtest.h>

using namespace ostrel;

namespace {

const QString ownBundle = QStringLiteral("com.tamsk.ostrel");
const QString otherBundle = QStringLiteral("org.example.editor");

DisplayFilterMode modeFor(const QList<ScreenCaptureApplicationIdentity> &applications, qint32 ownProcess,
                          const std::optional<QString> &bundle)
{
    return ScreenCaptureFilterStrategy::displayFilterMode(applications, ownProcess, bundle);
}

TEST(DisplayFilterMode, ownProcessAndBundleNotAmongApplications_includesAll)
{
    const auto mode = modeFor({{10, otherBundle}, {11, std::nullopt}}, 99, ownBundle);
    EXPECT_TRUE(mode.includesAllApplications());
    EXPECT_EQ(mode.diagnosticDescription(), QStringLiteral("includingApplications"));
}

TEST(DisplayFilterMode, ownProcessOrOwnBundle_isExcludedSortedAscending)
{
    const auto mode = modeFor({{30, ownBundle}, {20, otherBundle}, {10, std::nullopt}, {5, ownBundle}}, 10, ownBundle);
    EXPECT_EQ(mode.excludedProcessIDs, (QList<qint32>{5, 10, 30}));
    EXPECT_EQ(mode.diagnosticDescription(), QStringLiteral("excludingApplications(count=3)"));
}

TEST(DisplayFilterMode, absentOwnBundle_matchesNoApplicationWithoutBundle)
{
    EXPECT_TRUE(modeFor({{10, std::nullopt}}, 99, std::nullopt).includesAllApplications());
}

TEST(DisplayFilterMode, emptyOwnBundle_matchesNoApplicationWithEmptyBundle)
{
    EXPECT_TRUE(modeFor({{10, QString()}, {11, QStringLiteral("")}}, 99, QStringLiteral("")).includesAllApplications());
}

TEST(DisplayFilterMode, noApplications_includesAll)
{
    EXPECT_TRUE(modeFor({}, 1, ownBundle).includesAllApplications());
}

} // namespace
