#include "model/PermissionsArea.h"
#include "base/SerialQueue.h"
#include "base/TaskScope.h"
#include "model/ModelState.h"
#include "support/FakeAccessibilityAccess.h"
#include "support/FakeScreenCaptureAccess.h"
#include "support/FakeSystemSettingsOpener.h"
#include "support/FakeUserDefaults.h"
#include "support/ManualClock.h"
#include "support/Printers.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gmock/gmock.h>

#include <atomic>
#include <latch>

using namespace ostrel;
using enum AppPermissionKind;

namespace {

using Kinds = QSet<AppPermissionKind>;
const QString storedKey = QStringLiteral("dismissedRecommendedPermissions");

ObserverSettings settingsWithOutput(const QString &folder)
{
    ObserverSettings settings = ObserverSettings::defaults();
    settings.outputDirectory = folder;
    return settings;
}

class Permissions : public testing::Test
{
protected:
    Permissions()
    {
        m_screen.onPreflight = [this] { return m_screenGranted.load(); };
        m_accessibility.onIsTrusted = [this] { return m_trusted.load(); };
    }

    /// Until this is called, any request fails the test.
    void expectScreenRequests()
    {
        m_screen.onRequest = [this] {
            ++m_requests;
            return m_screenGranted.load();
        };
    }
    void expectAccessibilityRequest(bool grants)
    {
        m_accessibility.onRequest = [this, grants] {
            ++m_requests;
            m_trusted = grants;
            return grants;
        };
    }
    PermissionsArea &launch()
    {
        m_area = std::make_unique<PermissionsArea>(PermissionsArea::Dependencies{.state = m_state,
                                                                                 .worker = m_worker,
                                                                                 .requestQueue = m_requestQueue,
                                                                                 .screenCapture = m_screen,
                                                                                 .accessibility = m_accessibility,
                                                                                 .defaults = m_defaults,
                                                                                 .systemSettings = m_opener});
        return *m_area;
    }
    void press(AppPermissionKind kind)
    {
        m_tasks.spawn([this, kind](std::stop_token stop) { return m_area->requestPermission(kind, std::move(stop)); });
        settleEvents({&m_worker, &m_requestQueue});
    }
    void refresh()
    {
        m_tasks.spawn([this](std::stop_token stop) -> Task<> { co_await m_area->refreshPermissions(std::move(stop)); });
        settleEvents({&m_worker});
    }
    QString blockedFolder()
    {
        const QString file = m_folder.filePath(QStringLiteral("taken"));
        QFile taken(file);
        EXPECT_TRUE(taken.open(QIODevice::WriteOnly));
        return file;
    }

    QTemporaryDir m_folder;
    ModelState m_state{settingsWithOutput(m_folder.filePath(QStringLiteral("journal")))};
    std::atomic<bool> m_screenGranted = true;
    std::atomic<bool> m_trusted = true;
    std::atomic<int> m_requests = 0;
    FakeScreenCaptureAccess m_screen;
    FakeAccessibilityAccess m_accessibility;
    FakeUserDefaults m_defaults;
    FakeSystemSettingsOpener m_opener;
    SerialQueue m_worker{QStringLiteral("test.permissions")};
    SerialQueue m_requestQueue{QStringLiteral("test.requests")};
    std::unique_ptr<PermissionsArea> m_area;
    TaskScope m_tasks;
};

TEST_F(Permissions, construction_takesTheFirstSnapshotAndMakesTheOutputFolder)
{
    m_trusted = false;
    EXPECT_EQ(launch().permissions(), PermissionsSnapshot(true, true, false));
    const QDir journal(m_folder.filePath(QStringLiteral("journal")));
    EXPECT_TRUE(journal.exists());
    EXPECT_EQ(journal.entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot), QStringList());
}

TEST_F(Permissions, everythingGranted_noGateAndNothingToContinuePast)
{
    const PermissionsArea &area = launch();
    EXPECT_FALSE(area.shouldShowPermissionsGate());
    EXPECT_FALSE(area.canContinuePastPermissions());
}

TEST_F(Permissions, recommendedMissing_gateIsShownUntilContinued)
{
    m_trusted = false;
    PermissionsArea &area = launch();
    int dismissals = 0;
    QObject::connect(&area, &PermissionsArea::dismissedRecommendedPermissionKindsChanged,
                     [&dismissals] { ++dismissals; });
    EXPECT_TRUE(area.shouldShowPermissionsGate());
    EXPECT_TRUE(area.canContinuePastPermissions());

    area.continueWithoutRecommendedPermissions();
    EXPECT_EQ(area.dismissedRecommendedPermissionKinds(), Kinds{recordingContext});
    EXPECT_EQ(m_defaults.lists[storedKey], QStringList(QStringLiteral("recordingContext")));
    EXPECT_FALSE(area.shouldShowPermissionsGate());
    EXPECT_FALSE(area.canContinuePastPermissions());
    EXPECT_EQ(dismissals, 1);

    EXPECT_FALSE(launch().shouldShowPermissionsGate()) << "the choice outlives the launch";
}

TEST_F(Permissions, requiredMissing_cannotBeContinuedPast)
{
    m_screenGranted = false;
    m_trusted = false;
    EXPECT_TRUE(launch().shouldShowPermissionsGate());
    EXPECT_FALSE(m_area->canContinuePastPermissions());

    m_screenGranted = true;
    m_state.setSettings(settingsWithOutput(blockedFolder()));
    EXPECT_TRUE(launch().shouldShowPermissionsGate());
    EXPECT_FALSE(m_area->canContinuePastPermissions());
}

TEST_F(Permissions, dismissedGrantGivenAndTakenBack_gateDoesNotReturn)
{
    m_trusted = false;
    PermissionsArea &area = launch();
    area.continueWithoutRecommendedPermissions();
    m_trusted = true;
    refresh();
    EXPECT_EQ(area.dismissedRecommendedPermissionKinds(), Kinds{recordingContext});
    m_trusted = false;
    refresh();
    EXPECT_FALSE(area.permissions().accessibilityAuthorized);
    EXPECT_FALSE(area.shouldShowPermissionsGate());
}

TEST_F(Permissions, storedListWithUnknownString_loadsWithoutIt)
{
    m_defaults.lists[storedKey] = {QStringLiteral("telepathy"), QStringLiteral("recordingContext"), QString()};
    EXPECT_EQ(launch().dismissedRecommendedPermissionKinds(), Kinds{recordingContext});
}

TEST_F(Permissions, nothingStored_nothingIsDismissed)
{
    EXPECT_EQ(launch().dismissedRecommendedPermissionKinds(), Kinds{});
}

TEST_F(Permissions, severalDismissedKinds_areStoredSorted)
{
    m_trusted = false;
    m_defaults.lists[storedKey] = {QStringLiteral("screenRecording"), QStringLiteral("fileAccess")};
    launch().continueWithoutRecommendedPermissions();
    EXPECT_EQ(m_defaults.lists[storedKey],
              QStringList({QStringLiteral("fileAccess"), QStringLiteral("recordingContext"),
                           QStringLiteral("screenRecording")}));
}

TEST_F(Permissions, refreshWithoutAChange_announcesNothing)
{
    int changes = 0;
    QObject::connect(&launch(), &PermissionsArea::permissionsChanged, [&changes] { ++changes; });
    refresh();
    EXPECT_EQ(changes, 0);
    m_screenGranted = false;
    refresh();
    EXPECT_EQ(changes, 1);
    EXPECT_EQ(m_area->permissions(), PermissionsSnapshot(false, true, true));
}

TEST_F(Permissions, refreshStopped_publishesNothing)
{
    int changes = 0;
    QObject::connect(&launch(), &PermissionsArea::permissionsChanged, [&changes] { ++changes; });
    m_screenGranted = false;
    m_tasks.spawn([this](std::stop_token stop) -> Task<> { co_await m_area->refreshPermissions(std::move(stop)); });
    m_tasks.cancelAll();
    settleEvents({&m_worker});
    EXPECT_EQ(changes, 0);
    EXPECT_EQ(m_tasks.liveCount(), 0);
}

TEST_F(Permissions, checkThatBlocks_mainThreadStillHandlesEvents)
{
    launch();
    std::latch gate(1);
    m_screen.onPreflight = [&gate] {
        gate.wait();
        return true;
    };
    m_tasks.spawn([this](std::stop_token stop) -> Task<> { co_await m_area->refreshPermissions(std::move(stop)); });
    bool handled = false;
    QMetaObject::invokeMethod(m_area.get(), [&handled] { handled = true; }, Qt::QueuedConnection);
    QCoreApplication::processEvents();
    EXPECT_TRUE(handled);
    EXPECT_EQ(m_tasks.liveCount(), 1) << "the check was over before the event was handled";
    gate.count_down();
    settleEvents({&m_worker});
    EXPECT_EQ(m_tasks.liveCount(), 0);
}

TEST_F(Permissions, requestThatWaitsForTheUser_holdsUpNoCheckAndNoOtherWork)
{
    m_screenGranted = false;
    std::latch answer(1);
    m_screen.onRequest = [this, &answer] {
        answer.wait();
        m_screenGranted = true;
        return true;
    };
    launch();
    m_tasks.spawn([this](std::stop_token stop) { return m_area->requestPermission(screenRecording, std::move(stop)); });
    m_trusted = false;
    refresh();
    EXPECT_EQ(m_area->permissions(), PermissionsSnapshot(false, true, false));
    bool hasWorked = false;
    m_worker.sync([&hasWorked] { hasWorked = true; });
    EXPECT_TRUE(hasWorked);
    EXPECT_EQ(m_tasks.liveCount(), 1) << "the user still thinks";

    answer.count_down();
    settleEvents({&m_worker, &m_requestQueue});
    EXPECT_EQ(m_area->permissions(), PermissionsSnapshot(true, true, false)) << "the answer refreshes";
    EXPECT_EQ(m_tasks.liveCount(), 0);
}

TEST_F(Permissions, screenRecordingRowPressedTwice_secondPressOpensTheSettings)
{
    m_screenGranted = false;
    expectScreenRequests();
    launch();
    press(screenRecording);
    EXPECT_EQ(m_requests, 1);
    EXPECT_EQ(m_opener.opened, QStringList());

    m_screenGranted = true;
    press(screenRecording);
    EXPECT_EQ(m_requests, 1);
    EXPECT_EQ(m_opener.opened, QStringList(QStringLiteral("screen")));
    EXPECT_TRUE(m_area->permissions().screenCaptureAuthorized) << "the press also refreshes";

    launch();
    press(screenRecording);
    EXPECT_EQ(m_requests, 2) << "a new launch asks again";
}

TEST_F(Permissions, fileAccessRowPressed_opensTheSettingsOnlyWhileNotGranted)
{
    m_state.setSettings(settingsWithOutput(blockedFolder()));
    launch();
    press(fileAccess);
    EXPECT_EQ(m_opener.opened, QStringList(QStringLiteral("files")));
    m_state.setSettings(settingsWithOutput(m_folder.path()));
    press(fileAccess);
    EXPECT_EQ(m_opener.opened, QStringList(QStringLiteral("files")));
    EXPECT_TRUE(m_area->permissions().fileAccessAuthorized);
}

TEST_F(Permissions, accessibilityRequestRefused_opensTheSettings)
{
    m_trusted = false;
    expectAccessibilityRequest(false);
    launch();
    press(recordingContext);
    EXPECT_EQ(m_requests, 1);
    EXPECT_EQ(m_opener.opened, QStringList(QStringLiteral("accessibility")));
}

TEST_F(Permissions, accessibilityRequestGranted_isPublishedWithoutTheSettings)
{
    m_trusted = false;
    expectAccessibilityRequest(true);
    launch();
    press(recordingContext);
    EXPECT_EQ(m_opener.opened, QStringList());
    EXPECT_TRUE(m_area->permissions().accessibilityAuthorized);
}

TEST_F(Permissions, accessibilityGrantedAlready_opensTheSettingsWithoutAsking)
{
    launch();
    press(recordingContext);
    EXPECT_EQ(m_requests, 0);
    EXPECT_EQ(m_opener.opened, QStringList(QStringLiteral("accessibility")));
}

} // namespace
