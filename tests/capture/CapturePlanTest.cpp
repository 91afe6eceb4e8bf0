#include "capture/CapturePlan.h"

#include "support/FakeDisplaySource.h"
#include "support/Printers.h"

#include <gtest/gtest.h>

using namespace ostrel;

namespace {

class CapturePlanTest : public testing::Test
{
protected:
    Result<CapturePlan> plan(double frameFps = 0.5)
    {
        return m_queue.sync([&] { return planCapture(m_source, frameFps, 42, QStringLiteral("com.tamsk.ostrel")); });
    }

    SerialQueue m_queue{QStringLiteral("samples")};
    FakeDisplaySource m_source{m_queue};
};

TEST_F(CapturePlanTest, noDisplay_failsWithCode1)
{
    m_source.show({});
    const auto planned = plan();
    ASSERT_FALSE(planned);
    EXPECT_EQ(planned.error(),
              (Error{QStringLiteral("TamskOstrel.ScreenCapture"), 1, QStringLiteral("No capturable display found")}));
}

TEST_F(CapturePlanTest, sourceFails_itsErrorIsPassedOn)
{
    const Error broken{QStringLiteral("test"), 5, QStringLiteral("no server")};
    m_source.onShareableContent = [broken] { return std::unexpected(broken); };
    const auto planned = plan();
    ASSERT_FALSE(planned);
    EXPECT_EQ(planned.error(), broken);
}

TEST_F(CapturePlanTest, displays_areOrderedLabelledAndConfigured)
{
    m_source.onShareableContent = [] {
        ShareableContent content;
        content.mainDisplayId = 3;
        for (const quint32 id : {7u, 3u, 5u})
            content.displays.append({.displayId = id, .width = id * 100, .height = id, .bounds = {}});
        content.applications = {{.processID = 42, .bundleIdentifier = {}}, {.processID = 9, .bundleIdentifier = {}}};
        return Result<ShareableContent>(content);
    };
    const auto planned = plan(2);
    ASSERT_TRUE(planned);
    ASSERT_EQ(planned->displays.size(), 3);
    EXPECT_EQ(planned->filterMode.excludedProcessIDs, QList<qint32>{42});
    const CapturePlan::Display &last = planned->displays[2];
    EXPECT_EQ(last.displayId, 7u);
    EXPECT_EQ(last.filter.displayId, 7u);
    EXPECT_EQ(last.filter.mode, planned->filterMode);
    EXPECT_EQ(last.configuration.width, 700);
    EXPECT_EQ(last.configuration.minimumFrameInterval600, 300);
    EXPECT_EQ(last.context->displayId, QStringLiteral("7"));
    EXPECT_EQ(last.context->displayLabel, QStringLiteral("Display 3"));
    EXPECT_EQ(last.context->width, 700);
    EXPECT_EQ(last.context->height, 7);
    EXPECT_EQ(last.context->lastAcceptedFrameMs, 0);
    EXPECT_FALSE(last.context->lastSentDownsample);
    EXPECT_EQ(planned->candidates[2].displayLabel, last.context->displayLabel);
}

} // namespace
