#include "FindingMatchers.h"
#include "HealthyFacts.h"

#include "app/doctor/Checks.h"
#include "base/Fault.h"

using namespace ostrel;

namespace {

class ScreenChecks : public testing::Test
{
protected:
    ScreenFacts &screen() { return **m_facts.screen; }

    /// Every check that needs the screen.
    QList<Finding> onTheScreen() const
    {
        QList<Finding> findings;
        for (const auto check : {checkDisplays, checkPictures, checkSharedMemory, checkChangeTracking, checkPointer,
                                 checkMonitors, checkFrontWindow})
            findings.append(check(m_facts));
        return findings;
    }

    DoctorFacts m_facts = healthyFacts();
};

TEST_F(ScreenChecks, healthyScreen_isToldInNumbers)
{
    EXPECT_THAT(checkSession(m_facts), isOk("X11, display :0"));
    EXPECT_THAT(checkDisplays(m_facts), isOk("2: 1920x1080 (main), 1280x1024"));
    EXPECT_THAT(checkPictures(m_facts), isOk("thrown away"));
    EXPECT_THAT(checkSharedMemory(m_facts), isOk("MIT-SHM 1.2"));
    EXPECT_THAT(checkChangeTracking(m_facts), isOk("XDamage 1.2"));
    EXPECT_THAT(checkPointer(m_facts), isOk("XFixes 1.2"));
    EXPECT_THAT(checkMonitors(m_facts), isOk("RandR 1.2"));
    EXPECT_THAT(checkFrontWindow(m_facts), isOk("Openbox"));
}

TEST_F(ScreenChecks, noSession_blocksAndLeavesTheScreenUntried)
{
    m_facts.session = SessionKind::None;
    m_facts.screen.reset();
    EXPECT_THAT(checkSession(m_facts), isBlocking("DISPLAY", "X11 session"));
    EXPECT_THAT(onTheScreen(), testing::Each(isUntried("not tried without a display")));
}

TEST_F(ScreenChecks, healthyWaylandSession_isToldInItsOwnTerms)
{
    m_facts.session = SessionKind::Wayland;
    m_facts.display = QStringLiteral("wayland-1");
    const auto displays = screen().displays;
    m_facts.screen = ScreenFacts{};
    screen().displays = displays;
    screen().windowManager = WindowManagerFacts{.name = QStringLiteral("sway"), .tellsActiveWindow = true};
    EXPECT_THAT(checkSession(m_facts), isOk("Wayland, display wayland-1"));
    EXPECT_THAT(checkDisplays(m_facts), isOk("2: 1920x1080 (main), 1280x1024"));
    EXPECT_THAT(checkPictures(m_facts), isOk("the windows that the privacy rules name are black"));
    for (const auto check : {checkSharedMemory, checkChangeTracking, checkPointer, checkMonitors})
        EXPECT_THAT(check(m_facts), isOk("wlr-screencopy"));
    EXPECT_THAT(checkFrontWindow(m_facts), isOk("sway tells which one it is"));
}

TEST_F(ScreenChecks, compositorThatTellsNoWindows_isSaidToGoWithoutPicturesOfPrivateOnes)
{
    m_facts.session = SessionKind::Wayland;
    screen().windowManager.reset();
    EXPECT_THAT(checkPictures(m_facts),
                isOk("none is taken while one that the privacy rules name is known to be in front"));
}

TEST_F(ScreenChecks, compositorWithoutScreencopy_blocksAndSaysWhatToChoose)
{
    m_facts.session = SessionKind::Wayland;
    m_facts.screen = std::unexpected(faultError(Fault::NoScreencopy));
    EXPECT_THAT(checkSession(m_facts), isBlocking("Wayland", "X11 (\"Xorg\")"));
    EXPECT_THAT(onTheScreen(), testing::Each(isUntried("")));
}

TEST_F(ScreenChecks, portalThatWasGranted_isTheMeansAndIsNotTried)
{
    m_facts.session = SessionKind::Wayland;
    m_facts.screen = ScreenFacts{};
    screen().portal = PortalFacts{.version = 5, .isGranted = true};
    EXPECT_THAT(checkSession(m_facts), isOk("pictures come through the desktop portal (screen cast version 5)"));
    EXPECT_THAT(checkDisplays(m_facts), isUntried("at the start of a recording"));
    EXPECT_THAT(checkPictures(m_facts), isUntried("the desktop would tell that the screen is seen"));
    for (const auto check : {checkSharedMemory, checkChangeTracking, checkPointer, checkMonitors})
        EXPECT_THAT(check(m_facts), isOk("desktop portal"));
}

TEST_F(ScreenChecks, portalThatTheUserHasChosen_isSaidToBeAndDropsPicturesOfPrivateWindows)
{
    m_facts.session = SessionKind::Wayland;
    m_facts.screen = ScreenFacts{};
    screen().windowManager = WindowManagerFacts{.name = QStringLiteral("sway"), .tellsActiveWindow = true};
    screen().portal = PortalFacts{.version = 4, .isGranted = true, .isChosen = true};
    EXPECT_THAT(checkSession(m_facts), isOk("through the desktop portal, because OSTREL_CAPTURE says so"));
    EXPECT_THAT(checkPictures(m_facts), isUntried("are black that the privacy rules name, if the desktop tells"));
    EXPECT_THAT(checkPictures(m_facts), isUntried("none is taken while one that the privacy rules name"));
}

TEST_F(ScreenChecks, chosenPortalThatIsNotThere_blocksAndSaysHowToGoBack)
{
    m_facts.session = SessionKind::Wayland;
    m_facts.screen = std::unexpected(faultError(Fault::NoScreenPortal));
    EXPECT_THAT(checkSession(m_facts), isBlocking("desktop portal", "unset OSTREL_CAPTURE"));
}

TEST_F(ScreenChecks, portalThatWasNotAskedYet_blocksWithTheCommandThatAsks)
{
    m_facts.session = SessionKind::Wayland;
    m_facts.screen = ScreenFacts{};
    screen().portal = PortalFacts{.version = std::nullopt, .isGranted = false};
    EXPECT_THAT(checkSession(m_facts), isOk("started when it is needed"));
    EXPECT_THAT(checkPictures(m_facts), isBlocking("not been asked yet", "ostrel permissions allow screenRecording"));
}

TEST_F(ScreenChecks, compositorThatHangsOrIsGone_blocks)
{
    m_facts.session = SessionKind::Wayland;
    m_facts.screen.reset();
    EXPECT_THAT(checkSession(m_facts), isBlocking("does not answer", "log out"));
    m_facts.screen = std::unexpected(faultError(Fault::NoWaylandDisplay, QStringLiteral("wayland-7")));
    EXPECT_THAT(checkSession(m_facts), isBlocking("wayland-7", "graphical session"));
    EXPECT_THAT(onTheScreen(), testing::Each(isUntried("")));
}

TEST_F(ScreenChecks, displayThatCannotBeReached_isNamed)
{
    m_facts.screen = std::unexpected(faultError(Fault::NoXDisplay, QStringLiteral("DISPLAY is \":7\"")));
    EXPECT_THAT(checkSession(m_facts), isBlocking(":7", "X11 session"));
    EXPECT_THAT(onTheScreen(), testing::Each(isUntried("")));
}

TEST_F(ScreenChecks, serverThatHangs_blocksHoweverItWasNoticed)
{
    m_facts.screen.reset();
    EXPECT_THAT(checkSession(m_facts), isBlocking(":0 does not answer", "systemctl restart display-manager"));
    m_facts.screen = std::unexpected(faultError(Fault::TimedOut));
    EXPECT_THAT(checkSession(m_facts), isBlocking(":0 does not answer", "systemctl restart display-manager"));
    EXPECT_THAT(onTheScreen(), testing::Each(isUntried("")));
}

TEST_F(ScreenChecks, noDisplaySwitchedOn_blocks)
{
    screen().displays.clear();
    EXPECT_THAT(checkDisplays(m_facts), isBlocking("no display that is switched on", "xrandr --auto"));
    EXPECT_THAT(checkPictures(m_facts), isUntried("not tried"));
}

TEST_F(ScreenChecks, pictureThatFails_blocksOnlyWhereEachOneFails)
{
    screen().displays[1].pictureFault = faultError(Fault::PictureRefused, QStringLiteral("error 8"));
    EXPECT_THAT(checkPictures(m_facts), isMissing("display 2: The screen gave no picture", "log out"));
    screen().displays[0].pictureFault = faultError(Fault::PictureRefused, QStringLiteral("error 8"));
    EXPECT_THAT(checkPictures(m_facts), isBlocking("display 1: ", "log out"));
}

TEST_F(ScreenChecks, extensionThatIsNotThere_saysWhatItCosts)
{
    screen().sharedMemory.reset();
    screen().changeTracking.reset();
    screen().pointer.reset();
    screen().monitors.reset();
    EXPECT_THAT(checkSharedMemory(m_facts), isMissing("no MIT-SHM: pictures come over the connection", "--ipc=host"));
    EXPECT_THAT(checkChangeTracking(m_facts), isMissing("no XDamage: a still screen costs", "DAMAGE"));
    EXPECT_THAT(checkPointer(m_facts), isMissing("no XFixes: the pointer is missing", "XFIXES"));
    EXPECT_THAT(checkMonitors(m_facts), isMissing("no RandR: all monitors count as one", "RANDR"));
}

TEST_F(ScreenChecks, extensionThatIsThereAndFails_isNotCalledFine)
{
    screen().sharedMemory->works = false;
    screen().monitors->works = false;
    EXPECT_THAT(checkSharedMemory(m_facts), isMissing("MIT-SHM 1.2 does not work here", "--ipc=host"));
    EXPECT_THAT(checkMonitors(m_facts), isMissing("RandR 1.2 does not work here", "RANDR"));
}

TEST_F(ScreenChecks, frontWindow_withoutAnybodyToTellIt_isMissing)
{
    screen().windowManager->tellsActiveWindow = false;
    EXPECT_THAT(checkFrontWindow(m_facts), isMissing("Openbox does not tell", "sudo apt install openbox"));
    screen().windowManager.reset();
    EXPECT_THAT(checkFrontWindow(m_facts), isMissing("can't name applications", "sudo apt install openbox"));
    m_facts.packages = PackageManager::Zypper;
    EXPECT_THAT(checkFrontWindow(m_facts), isMissing("", "sudo zypper install openbox"));
}

TEST_F(ScreenChecks, frontWindow_ofACompositorThatKeepsItToItself_isToldByPrograms)
{
    m_facts.session = SessionKind::Wayland;
    screen().windowManager.reset();
    EXPECT_THAT(checkFrontWindow(m_facts), isOk("programs tell it on the accessibility bus"));
    m_facts.bus->isAccessibilityGranted = false;
    EXPECT_THAT(checkFrontWindow(m_facts),
                isMissing("before window titles are allowed", "ostrel permissions allow recordingContext"));
    m_facts.bus->accessibility.isRunning = false;
    m_facts.bus->isAccessibilityGranted.reset();
    EXPECT_THAT(checkFrontWindow(m_facts), isUntried("started when it is needed"));
}

TEST_F(ScreenChecks, frontWindow_ofACompositorThatKeepsItToItself_isMissingWithoutAnAccessibilityBus)
{
    m_facts.session = SessionKind::Wayland;
    screen().windowManager.reset();
    m_facts.bus->isAccessibilityGranted.reset();
    EXPECT_THAT(checkFrontWindow(m_facts), isMissing("neither this compositor nor an accessibility bus", "sway"));
    m_facts.bus->accessibility = {};
    EXPECT_THAT(checkFrontWindow(m_facts), isMissing("neither this compositor nor an accessibility bus", "sway"));
    m_facts.bus.reset();
    EXPECT_THAT(checkFrontWindow(m_facts), isMissing("neither this compositor nor an accessibility bus", "sway"));
}

TEST_F(ScreenChecks, frontWindow_ofACompositorThatHangs_isMissingThoughProgramsCouldTell)
{
    m_facts.session = SessionKind::Wayland;
    screen().windowManager = WindowManagerFacts{.name = QStringLiteral("sway"), .tellsActiveWindow = false};
    EXPECT_THAT(checkFrontWindow(m_facts), isMissing("sway does not tell which one it is", "log out and in"));
}

TEST_F(ScreenChecks, windowFacts_thatTheDesktopNeverTells_areNamedWithTheirReasonsAndNothingMendsThem)
{
    EXPECT_THAT(checkWindowFacts(m_facts), isOk("title and place, and the pointer's"));
    m_facts.unavailable = {
        {.fact = QStringLiteral("window title"), .reason = QStringLiteral("nobody tells it")},
        {.fact = QStringLiteral("pointer position"), .reason = QStringLiteral("it is nobody's business")}};
    const Finding finding = checkWindowFacts(m_facts);
    EXPECT_EQ(finding.state, Finding::State::Missing);
    EXPECT_EQ(finding.detail,
              QStringLiteral("window title: not available on this desktop, because nobody tells it; "
                             "pointer position: not available on this desktop, because it is nobody's business"));
    EXPECT_EQ(finding.fix, std::nullopt);
}

TEST_F(ScreenChecks, windowFacts_ofADesktopThatIsNotThereOrDoesNotAnswer_areUntried)
{
    m_facts.unavailable.reset();
    EXPECT_THAT(checkWindowFacts(m_facts), isUntried("did not answer in time"));
    m_facts.session = SessionKind::None;
    EXPECT_THAT(checkWindowFacts(m_facts), isUntried("without a display"));
}

} // namespace
