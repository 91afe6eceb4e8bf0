#include "ScriptedOutputs.h"

#include <QElapsedTimer>

#include <limits>

using namespace ostrel;
using Memory = FakeCompositor::Memory;

namespace {

constexpr std::uint32_t xrgb8888 = 1; // as wl_shm numbers it
constexpr std::uint32_t fourCc(char a, char b, char c, char d)
{
    return std::uint32_t(a) | std::uint32_t(b) << 8 | std::uint32_t(c) << 16 | std::uint32_t(d) << 24;
}
constexpr std::uint32_t xbgr8888 = fourCc('X', 'B', '2', '4');
constexpr std::uint32_t rgb565 = fourCc('R', 'G', '1', '6');
constexpr auto farthest = std::numeric_limits<std::uint32_t>::max();

/// A compositor whose answers are wrong, odd or missing.
class WlrRudeAnswers : public ScriptedOutputs
{
protected:
    void wants(const Memory &memory) { m_compositor->behave(m_left, {.answer = Answer::Picture, .memory = memory}); }
};

TEST_F(WlrRudeAnswers, redFirst_isSeenInItsColours)
{
    wants({.format = xbgr8888, .width = 64, .height = 32, .stride = 256});
    expectShown(opened(m_leftLook), m_leftLook.mode, blue);
}

TEST_F(WlrRudeAnswers, rowsWithAGap_areReadWithoutIt)
{
    wants({.format = xrgb8888, .width = 64, .height = 32, .stride = 300});
    expectShown(opened(m_leftLook), m_leftLook.mode, blue);
}

TEST_F(WlrRudeAnswers, formatThatNobodyCanRead_isSaidAndNoMemoryIsOffered)
{
    const auto left = opened(m_leftLook);
    wants({.format = rgb565, .width = 64, .height = 32, .stride = 128});
    expectFault(left, Fault::ScreenFormatUnsupported);
    m_compositor->behave(m_left, {});
    expectShown(left, m_leftLook.mode, blue);
}

/// Sizes that are none.
class WlrImpossibleMemory : public WlrRudeAnswers, public testing::WithParamInterface<Memory>
{};

TEST_P(WlrImpossibleMemory, size_isRefusedAndTheNextPictureIsSeen)
{
    const auto left = opened(m_leftLook);
    wants(GetParam());
    expectFault(left, Fault::ScreenFormatUnsupported);
    m_compositor->behave(m_left, {});
    expectShown(left, m_leftLook.mode, blue);
}

INSTANTIATE_TEST_SUITE_P(Sizes, WlrImpossibleMemory,
                         testing::Values(Memory{xrgb8888, 0, 0, 0}, Memory{xrgb8888, 64, 0, 256},
                                         Memory{xrgb8888, 0, 32, 256}, Memory{xrgb8888, 64, 32, 0},
                                         Memory{xrgb8888, 64, 32, 255}, Memory{xrgb8888, 64, 32, farthest},
                                         Memory{xrgb8888, farthest, 32, 256}, Memory{xrgb8888, 64, farthest, 256},
                                         Memory{xrgb8888, 32'768, 1, 131'072},
                                         Memory{xrgb8888, farthest, farthest, farthest}));

TEST_F(WlrRudeAnswers, pictureOfAnotherSizeThanTheOutputs_isNone)
{
    const auto left = opened(m_leftLook);
    wants({.format = xrgb8888, .width = 32'767, .height = 16'000, .stride = 131'068});
    expectFault(left, Fault::DisplayResized);
    EXPECT_EQ(m_compositor->pictures(m_left), 0) << "no memory for it was offered";
}

TEST_F(WlrRudeAnswers, noMemoryThatCanBeShared_isRefused)
{
    m_compositor->behave(m_left, {.answer = Answer::NoMemory});
    expectFault(opened(m_leftLook), Fault::PictureRefused);
}

TEST_F(WlrRudeAnswers, refusalAfterWordOfTheMemory_isNotFollowedByACopy)
{
    m_compositor->behave(m_left, {.answer = Answer::RefusedLate});
    const auto left = opened(m_leftLook);
    expectFault(left, Fault::PictureRefused);
    m_compositor->behave(m_left, {});
    expectShown(left, m_leftLook.mode, blue);
}

TEST_F(WlrRudeAnswers, pictureThatIsReadyBeforeThereIsMemory_isAwaitedAllTheSame)
{
    m_compositor->behave(m_left, {.answer = Answer::ReadyTooEarly});
    expectShown(opened(m_leftLook), m_leftLook.mode, blue);
}

TEST_F(WlrRudeAnswers, silence_isGivenUpAndTheNextConnectionIsANewOne)
{
    for (const Answer silence : {Answer::Silence, Answer::SilentCopy}) {
        const auto left = opened(m_leftLook);
        m_compositor->behave(m_left, {.answer = silence});
        QElapsedTimer elapsed;
        elapsed.start();
        expectFault(left, Fault::TimedOut);
        EXPECT_GE(elapsed.elapsed(), patience.count());
        m_compositor->behave(m_left, {});
        expectFault(left, Fault::TimedOut);
        expectShown(opened(m_leftLook), m_leftLook.mode, blue);
    }
}

TEST_F(WlrRudeAnswers, silenceWhileAChangeIsAwaited_isNoChange)
{
    const auto left = opened(m_leftLook);
    expectShown(left, m_leftLook.mode, blue);
    m_compositor->behave(m_left, {.answer = Answer::SilentCopy});
    m_compositor->paint(m_left, red);
    expectShown(left, m_leftLook.mode, blue);
    m_compositor->behave(m_left, {});
    expectShown(left, m_leftLook.mode, red);
}

TEST_F(WlrRudeAnswers, outputWithoutAMode_isNoDisplay)
{
    for (const QSize mode : {QSize(0, 0), QSize(-64, 32), QSize(64, -1), QSize(1 << 30, 1 << 30)}) {
        m_compositor->change(m_left, {.name = "DP-1", .mode = mode});
        ASSERT_EQ(content().displays.size(), 1) << mode.width() << " x " << mode.height();
        EXPECT_EQ(content().displays.first().displayId, idOf(m_rightLook));
    }
}

TEST_F(WlrRudeAnswers, impossiblePlacesAndScales_leaveTheDisplaysUsable)
{
    constexpr int most = std::numeric_limits<int>::max();
    constexpr int least = std::numeric_limits<int>::min();
    m_compositor->change(m_left, {.name = "DP-1", .mode = {64, 32}, .corner = {most, least}, .scale = 0});
    m_compositor->change(m_right, {.name = "DP-2",
                                   .mode = {40, 48},
                                   .corner = {least, most},
                                   .scale = least,
                                   .transform = 99,
                                   .logicalSize = QSize(-1, most)});
    const ShareableContent found = content();
    ASSERT_EQ(found.displays.size(), 2);
    for (const CapturableDisplay &display : found.displays) {
        EXPECT_TRUE(display.bounds.isValid()) << display.displayId;
        EXPECT_LT(display.bounds.width(), 100'000) << display.displayId;
    }
    expectShown(opened(m_leftLook), m_leftLook.mode, blue);
    expectShown(opened(m_rightLook), m_rightLook.mode, red);
}

} // namespace
