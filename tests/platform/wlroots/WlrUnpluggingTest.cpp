#include "ScriptedOutputs.h"
#include "support/RunTask.h"

#include <QElapsedTimer>

using namespace ostrel;

namespace {

/// Monitors that come, go and change while they are recorded.
class WlrUnplugging : public ScriptedOutputs
{
protected:
    /// Whether the source has heard of it, once the compositor's word has arrived.
    bool displaysChange()
    {
        return pumpUntil([this] { return m_source.haveDisplaysChanged(); });
    }
};

TEST_F(WlrUnplugging, outputUnplugged_isAChangeAndGoneWhileTheOtherIsSeen)
{
    content();
    const auto left = opened(m_leftLook);
    const auto right = opened(m_rightLook);
    expectShown(left, m_leftLook.mode, blue);
    m_compositor->unplug(m_left);
    EXPECT_TRUE(displaysChange());
    expectFault(left, Fault::DisplayGone);
    expectFault(left, Fault::DisplayGone);
    expectShown(right, m_rightLook.mode, red);
    ASSERT_EQ(content().displays.size(), 1);
    EXPECT_EQ(content().mainDisplayId, idOf(m_rightLook));
    EXPECT_EQ(content().displays.first().bounds.topLeft(), QPointF(0, 0)) << "the main display is the corner now";
    EXPECT_FALSE(m_source.haveDisplaysChanged());
}

TEST_F(WlrUnplugging, outputThatComesAndGoesBetweenTwoReadings_costsNoneOfTheOthers)
{
    ASSERT_EQ(content().displays.size(), 2);
    m_compositor->forget(m_compositor->plugIn({.name = "DP-3"}, red));
    EXPECT_EQ(content().displays.size(), 2);
    expectShown(opened(m_leftLook), m_leftLook.mode, blue);
}

TEST_F(WlrUnplugging, outputUnpluggedWhileItsFirstPictureIsUnderWay_isGone)
{
    const auto left = opened(m_leftLook);
    m_compositor->atNextCopy([this] { m_compositor->unplug(m_left); });
    expectFault(left, Fault::DisplayGone);
}

TEST_F(WlrUnplugging, outputUnpluggedWhileAChangeIsAwaited_isGone)
{
    const auto left = opened(m_leftLook);
    expectShown(left, m_leftLook.mode, blue);
    m_compositor->atNextCopy([this] { m_compositor->unplug(m_left); });
    expectFault(left, Fault::DisplayGone);
}

TEST_F(WlrUnplugging, outputUnpluggedWithoutAWordOfItsPicture_isGoneAtOnce)
{
    const auto left = opened(m_leftLook);
    m_compositor->behave(m_left, {.answer = Answer::SilentCopy});
    m_compositor->atNextCopy([this] { m_compositor->unplug(m_left); });
    expectFault(left, Fault::DisplayGone);
    // Nobody lost patience with the compositor, so the connection holds.
    expectShown(opened(m_rightLook), m_rightLook.mode, red);
    expectFault(left, Fault::DisplayGone);
}

TEST_F(WlrUnplugging, outputPluggedIn_isAChangeAndIsSeenAfterTheNextReading)
{
    content();
    EXPECT_FALSE(m_source.haveDisplaysChanged());
    const Output third{.name = "HDMI-A-1", .mode = {20, 10}, .corner = {104, 0}};
    m_compositor->plugIn(third, 0x20a040);
    EXPECT_TRUE(displaysChange());
    EXPECT_EQ(content().displays.size(), 3);
    EXPECT_FALSE(m_source.haveDisplaysChanged());
    expectShown(opened(third), third.mode, 0x20a040);
}

TEST_F(WlrUnplugging, outputUnpluggedAndPluggedInAgain_isTheSameDisplayToBeOpenedAnew)
{
    const ShareableContent before = content();
    const auto first = opened(m_leftLook);
    m_compositor->unplug(m_left);
    m_compositor->plugIn(m_leftLook, blue);
    expectFault(first, Fault::DisplayGone);
    EXPECT_TRUE(told(idOf(m_leftLook)) == before.displays.first());
    expectShown(opened(m_leftLook), m_leftLook.mode, blue);
}

TEST_F(WlrUnplugging, lastOutputUnplugged_leavesNoDisplayAndNoError)
{
    m_compositor->unplug(m_left);
    m_compositor->unplug(m_right);
    EXPECT_TRUE(content().displays.isEmpty());
}

TEST_F(WlrUnplugging, twoOutputsOfOneName_areTwoDisplaysOfWhichTheOtherStays)
{
    const int twin = m_compositor->plugIn({.name = "DP-1", .mode = {16, 16}, .corner = {200, 0}}, 0x20a040);
    ASSERT_EQ(content().displays.size(), 3);
    const auto left = opened(idOf(m_leftLook));
    const auto other = opened(idOf(m_leftLook) + 1);
    expectShown(left, m_leftLook.mode, blue);
    expectShown(other, {16, 16}, 0x20a040);
    m_compositor->unplug(m_left);
    EXPECT_TRUE(displaysChange());
    expectFault(left, Fault::DisplayGone);
    expectShown(other, {16, 16}, 0x20a040);
    EXPECT_EQ(content().displays.size(), 2);
    EXPECT_GT(m_compositor->pictures(twin), 0);
}

TEST_F(WlrUnplugging, otherMode_isAnErrorUntilTheDisplaysAreReadAgain)
{
    content();
    const auto left = opened(m_leftLook);
    expectShown(left, m_leftLook.mode, blue);
    Output wider = m_leftLook;
    wider.mode = {80, 20};
    m_compositor->change(m_left, wider);
    EXPECT_TRUE(displaysChange());
    expectFault(left, Fault::DisplayResized);
    EXPECT_EQ(told(idOf(m_leftLook)).width, 80);
    expectShown(opened(m_leftLook), wider.mode, blue);
}

TEST_F(WlrUnplugging, modeThatChangesWhileAPictureIsUnderWay_givesThatPictureAndThenAnError)
{
    const auto left = opened(m_leftLook);
    Output wider = m_leftLook;
    wider.mode = {80, 20};
    m_compositor->atNextCopy([=, this] { m_compositor->change(m_left, wider); });
    expectShown(left, m_leftLook.mode, blue);
    expectFault(left, Fault::DisplayResized);
}

TEST_F(WlrUnplugging, otherScale_movesTheDisplayAndKeepsItsPictures)
{
    content();
    const auto left = opened(m_leftLook);
    Output scaled = m_leftLook;
    scaled.scale = 2;
    m_compositor->change(m_left, scaled);
    EXPECT_TRUE(displaysChange());
    EXPECT_EQ(told(idOf(m_leftLook)).bounds, QRectF(0, 0, 32, 16));
    EXPECT_EQ(told(idOf(m_leftLook)).width, 64);
    expectShown(left, m_leftLook.mode, blue);
}

TEST_F(WlrUnplugging, quarterTurn_isAnotherSize)
{
    content();
    const auto left = opened(m_leftLook);
    Output turned = m_leftLook;
    turned.transform = 1;
    m_compositor->change(m_left, turned);
    EXPECT_TRUE(displaysChange());
    expectFault(left, Fault::DisplayResized);
    expectShown(opened(m_leftLook), turned.mode.transposed(), blue);
}

TEST_F(WlrUnplugging, outputSwitchedOff_isRefusedByNameUntilItIsOnAgain)
{
    const auto left = opened(m_leftLook);
    const auto right = opened(m_rightLook);
    m_compositor->behave(m_left, {.answer = Answer::Refused});
    for (int i = 0; i < 3; ++i) {
        const auto refused = left->capture();
        ASSERT_FALSE(refused);
        EXPECT_TRUE(isFault(refused.error(), Fault::PictureRefused));
        EXPECT_TRUE(refused.error().localizedDescription.contains(QStringLiteral("DP-1")));
    }
    expectShown(right, m_rightLook.mode, red);
    m_compositor->behave(m_left, {});
    expectShown(left, m_leftLook.mode, blue);
}

TEST_F(WlrUnplugging, outputSwitchedOffBetweenWordAndPicture_isRefusedAndThenSeenWhole)
{
    const auto left = opened(m_leftLook);
    expectShown(left, m_leftLook.mode, blue);
    m_compositor->behave(m_left, {.answer = Answer::RefusedCopy});
    m_compositor->paint(m_left, red);
    expectFault(left, Fault::PictureRefused);
    m_compositor->behave(m_left, {});
    const auto taken = left->capture();
    ASSERT_TRUE(taken && *taken);
    EXPECT_FALSE((*taken)->changedRows) << "nobody knows what was written before it was refused";
    EXPECT_TRUE(WaylandPicture::of(**taken) == WaylandPicture::plain(m_leftLook.mode, red));
}

TEST_F(WlrUnplugging, compositorThatCrashesInTheMiddleOfAPicture_isLostAndItsSuccessorIsFound)
{
    const auto lost = opened(m_leftLook);
    expectShown(lost, m_leftLook.mode, blue);
    m_compositor->atNextCopy([this] { m_compositor->hangUp(); });
    expectFault(lost, Fault::NoWaylandDisplay);
    m_compositor.reset();
    const auto absent = m_source.shareableContent();
    ASSERT_FALSE(absent);
    EXPECT_TRUE(isFault(absent.error(), Fault::NoWaylandDisplay));

    m_compositor.emplace("scripted");
    m_compositor->plugIn(m_rightLook, red);
    ASSERT_EQ(content().displays.size(), 1);
    expectShown(opened(m_rightLook), m_rightLook.mode, red);
    expectFault(lost, Fault::NoWaylandDisplay);
}

} // namespace
