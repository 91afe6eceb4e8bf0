#include "model/Permissions.h"
#include "support/Printers.h"

#include <gmock/gmock.h>

using namespace ostrel;
using enum AppPermissionKind;
using enum AppPermissionRequirement;

namespace {

using Kinds = QSet<AppPermissionKind>;

TEST(PermissionRows, everySnapshot_hasTheThreeRowsInOrder)
{
    const QList<PermissionPromptItem> expected{
        {screenRecording, QStringLiteral("Screen Recording"), QStringLiteral("Needed to analyze your screen"), required,
         true},
        {fileAccess, QStringLiteral("File Access"), QStringLiteral("Saves your journal locally"), required, false},
        {recordingContext, QStringLiteral("Accessibility"), QStringLiteral("Adds website and window names"),
         recommended, true},
    };
    EXPECT_EQ(permissionPromptItems({.screenCaptureAuthorized = true, .accessibilityAuthorized = true}), expected);
}

TEST(PermissionRows, oneGrantAtATime_marksItsOwnRowAlone)
{
    const auto granted = [](const PermissionsSnapshot &snapshot) {
        QList<bool> marks;
        for (const auto &item : permissionPromptItems(snapshot))
            marks.append(item.granted);
        return marks;
    };
    EXPECT_EQ(granted({}), QList<bool>({false, false, false}));
    EXPECT_EQ(granted({.screenCaptureAuthorized = true}), QList<bool>({true, false, false}));
    EXPECT_EQ(granted({.fileAccessAuthorized = true}), QList<bool>({false, true, false}));
    EXPECT_EQ(granted({.accessibilityAuthorized = true}), QList<bool>({false, false, true}));
}

TEST(PermissionKinds, rawValues_areThoseThatAreStored)
{
    EXPECT_EQ(rawValue(screenRecording), QStringLiteral("screenRecording"));
    EXPECT_EQ(rawValue(fileAccess), QStringLiteral("fileAccess"));
    EXPECT_EQ(rawValue(recordingContext), QStringLiteral("recordingContext"));
    EXPECT_EQ(rawValue(required), QStringLiteral("required"));
    EXPECT_EQ(rawValue(recommended), QStringLiteral("recommended"));
}

TEST(PermissionKinds, unknownRawValue_isNoKind)
{
    for (const AppPermissionKind kind : {screenRecording, fileAccess, recordingContext})
        EXPECT_EQ(permissionKindFromRawValue(rawValue(kind)), kind);
    EXPECT_EQ(permissionKindFromRawValue(QStringLiteral("microphone")), std::nullopt);
    EXPECT_EQ(permissionKindFromRawValue(QStringLiteral("FileAccess")), std::nullopt);
    EXPECT_EQ(permissionKindFromRawValue(QString()), std::nullopt);
}

TEST(PermissionsGate, everyCombination_followsTheRule)
{
    for (const bool screen : {false, true}) {
        for (const bool file : {false, true}) {
            for (const bool accessibility : {false, true}) {
                for (const bool dismissed : {false, true}) {
                    const PermissionsSnapshot snapshot{screen, file, accessibility};
                    const Kinds kinds = dismissed ? Kinds{recordingContext} : Kinds{};
                    const bool gate = !screen || !file || (!accessibility && !dismissed);
                    EXPECT_EQ(snapshot.shouldShowPermissionsGate(kinds), gate)
                        << screen << file << accessibility << dismissed;
                    EXPECT_EQ(snapshot.missingRecommendedPermissionKinds(),
                              accessibility ? Kinds{} : Kinds{recordingContext});
                }
            }
        }
    }
}

TEST(PermissionsGate, requiredKindDismissed_isStillShown)
{
    const Kinds all{screenRecording, fileAccess, recordingContext};
    EXPECT_TRUE(PermissionsSnapshot({.screenCaptureAuthorized = true}).shouldShowPermissionsGate(all));
    EXPECT_TRUE(PermissionsSnapshot({.fileAccessAuthorized = true}).shouldShowPermissionsGate(all));
}

} // namespace
