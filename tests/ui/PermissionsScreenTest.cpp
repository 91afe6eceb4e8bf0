#include "PopoverFixture.h"

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

using PermissionsScreen = PopoverFixture;

const QString recommended = QStringLiteral("dismissedRecommendedPermissions");

TEST_F(PermissionsScreen, aMissingRequiredGrant_isAskedForAndCantBePassed)
{
    m_screenGranted = false;
    open();
    EXPECT_TRUE(shows("Permissions"));
    EXPECT_TRUE(shows("Grant permissions used for local recording and context."));
    EXPECT_TRUE(shows("Screen Recording, not granted"));
    EXPECT_TRUE(shows("File Access, granted"));
    EXPECT_TRUE(shows("Accessibility, granted"));
    EXPECT_TRUE(shows("After enabling Screen Recording, macOS may ask you to quit and reopen the app."));
    EXPECT_FALSE(screen().button(QStringLiteral("Continue"))->isEnabled());
    EXPECT_FALSE(showsButton("Start recording"));
    EXPECT_EQ(screen().nameless(), QStringList());
}

TEST_F(PermissionsScreen, whileAGrantIsMissing_theJournalCanBeReadAllTheSame)
{
    m_screenGranted = false;
    writeDay(QStringLiteral("2023-11-14"), entries(1));
    open();
    press("Journal");
    EXPECT_TRUE(shows("9:00 AM, Editor, Worked on page 0"));
    press("Back");
    EXPECT_TRUE(shows("Permissions"));
}

TEST_F(PermissionsScreen, allow_asksForTheGrantOfItsRow)
{
    m_screenGranted = false;
    open();
    m_screen.onRequest = [this] {
        m_screenGranted = true;
        return true;
    };
    press("Allow");
    EXPECT_TRUE(showsButton("Start recording"));
}

TEST_F(PermissionsScreen, continue_goesOnWithoutTheRecommendedGrantForGood)
{
    m_accessibilityGranted = false;
    open();
    EXPECT_TRUE(shows("Accessibility, not granted"));
    press("Continue");
    EXPECT_TRUE(showsButton("Start recording"));
    EXPECT_EQ(m_defaults.lists[recommended], QStringList(QStringLiteral("recordingContext")));
}

TEST_F(PermissionsScreen, aGrantMadeElsewhere_opensTheRecorderByItself)
{
    m_screenGranted = false;
    open();
    EXPECT_FALSE(showsButton("Start recording"));
    m_screenGranted = true;
    advance(1500ms);
    EXPECT_TRUE(showsButton("Start recording"));
}

} // namespace
