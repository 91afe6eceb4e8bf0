#include "update/UpdaterCoordinator.h"
#include "base/Op.h"
#include "support/ManualClock.h"
#include "support/Printers.h"

#include <gtest/gtest.h>

using namespace ostrel;

namespace {

/// A framework that does what a test tells it to.
class FakeUpdateController final : public UpdateController
{
public:
    int starts = 0;
    int checks = 0;

    void startUpdater() override { ++starts; }
    void checkForUpdates() override { ++checks; }
    const UpdateState &state() const override { return m_state; }
    Task<> installOnQuit(std::stop_token) override
    {
        ADD_FAILURE() << "installOnQuit was not expected";
        co_return;
    }

private:
    UpdateState m_state;
};

class UpdaterCoordinatorTest : public testing::Test
{
protected:
    void make(const std::optional<QString> &feedUrl)
    {
        BundleInfo bundle;
        bundle.feedUrl = feedUrl;
        m_coordinator = std::make_unique<UpdaterCoordinator>(bundle, [this](UpdaterDelegate &delegate) {
            ++m_made;
            EXPECT_EQ(&delegate, m_coordinator.get());
            auto controller = std::make_unique<FakeUpdateController>();
            m_controller = controller.get();
            return controller;
        });
    }
    void makeWithFeed() { make(QStringLiteral("https://example.com/feed")); }
    bool willInstall()
    {
        return m_coordinator->willInstallUpdateOnQuit(Version::parse(QStringLiteral("0.2.0")).value(),
                                                      [this] { m_events.append(QStringLiteral("installed")); });
    }
    /// A preparation that ends when the test says so.
    void prepareUntilTold()
    {
        m_coordinator->prepareForUpdateRelaunch = [this](std::stop_token stop) -> Task<> {
            m_events.append(QStringLiteral("preparing"));
            co_await Op<bool>(stop, [this](auto resolve) {
                m_prepared = [resolve] { resolve(true); };
                return std::function<void()>();
            });
            m_events.append(QStringLiteral("prepared"));
        };
    }

    std::unique_ptr<UpdaterCoordinator> m_coordinator;
    FakeUpdateController *m_controller = nullptr;
    int m_made = 0;
    QStringList m_events;
    std::function<void()> m_prepared;
};

TEST_F(UpdaterCoordinatorTest, bundleWithoutAFeed_neverMakesTheControllerAndOffersNoCheck)
{
    make(std::nullopt);
    m_coordinator->start();
    EXPECT_EQ(m_made, 0);
    EXPECT_EQ(m_coordinator->controller(), nullptr);
    EXPECT_FALSE(bool(m_coordinator->checkForUpdates()));
}

TEST_F(UpdaterCoordinatorTest, bundleWithAFeed_startsTheControllerAtOnce)
{
    makeWithFeed();
    EXPECT_EQ(m_made, 0) << "not before it is told to";
    m_coordinator->start();
    ASSERT_EQ(m_coordinator->controller(), m_controller);
    EXPECT_EQ(m_controller->starts, 1);
    EXPECT_EQ(m_controller->checks, 0);
}

TEST_F(UpdaterCoordinatorTest, offeredCheck_asksTheControllerAndOutlivesTheCoordinator)
{
    makeWithFeed();
    m_coordinator->start();
    const auto check = m_coordinator->checkForUpdates();
    check();
    EXPECT_EQ(m_controller->checks, 1);
    m_coordinator.reset();
    check();
}

TEST_F(UpdaterCoordinatorTest, preparation_isAwaitedBeforeTheInstallation)
{
    makeWithFeed();
    prepareUntilTold();
    EXPECT_TRUE(willInstall());
    EXPECT_EQ(m_events, QStringList()) << "not within the framework's call";
    settleEvents();
    EXPECT_EQ(m_events, QStringList(QStringLiteral("preparing"))) << "the installation waits";
    m_prepared();
    EXPECT_EQ(m_events,
              QStringList({QStringLiteral("preparing"), QStringLiteral("prepared"), QStringLiteral("installed")}));
}

TEST_F(UpdaterCoordinatorTest, withoutAPreparation_theInstallationComesAtOnce)
{
    makeWithFeed();
    EXPECT_TRUE(willInstall());
    settleEvents();
    EXPECT_EQ(m_events, QStringList(QStringLiteral("installed")));
}

TEST_F(UpdaterCoordinatorTest, coordinatorThatIsGone_doesNotHoldTheInstallationUp)
{
    makeWithFeed();
    prepareUntilTold();
    EXPECT_TRUE(willInstall());
    m_coordinator.reset();
    settleEvents();
    EXPECT_EQ(m_events, QStringList(QStringLiteral("installed")));
}

TEST_F(UpdaterCoordinatorTest, coordinatorThatGoesDuringThePreparation_letsTheInstallationGoOn)
{
    makeWithFeed();
    prepareUntilTold();
    EXPECT_TRUE(willInstall());
    settleEvents();
    m_coordinator.reset();
    EXPECT_EQ(m_events.last(), QStringLiteral("installed"));
    EXPECT_EQ(m_events.size(), 3) << "once";
}

} // namespace
