#include "platform/logind/LockState.h"

#include <gtest/gtest.h>

using namespace ostrel;
using Voice = LockState::Voice;

TEST(LockState, nobodyWhoSaysSo_isUnlocked)
{
    EXPECT_FALSE(LockState().isLocked());
}

TEST(LockState, anyVoice_isEnoughAndTheLastOneEndsIt)
{
    LockState state;
    state.say(Voice::Session, true);
    state.say(Voice::GnomeScreenSaver, true);
    state.say(Voice::Session, false);
    EXPECT_TRUE(state.isLocked());
    state.say(Voice::GnomeScreenSaver, false);
    EXPECT_FALSE(state.isLocked());
}

TEST(LockState, request_isALockThatIsOpenUntilSomebodyConfirmsIt)
{
    LockState state;
    state.request();
    EXPECT_TRUE(state.isLocked());
    EXPECT_TRUE(state.isOpenRequest());
    state.say(Voice::ScreenSaver, true);
    EXPECT_TRUE(state.isLocked());
    EXPECT_FALSE(state.isOpenRequest());
}

TEST(LockState, endOfAConfirmedLock_endsTheRequestToo)
{
    LockState state;
    state.request();
    state.say(Voice::Session, true);
    state.say(Voice::Session, false);
    EXPECT_FALSE(state.isLocked());
}

TEST(LockState, voiceThatWasNeverLocked_doesNotEndTheRequest)
{
    LockState state;
    state.request();
    state.say(Voice::Session, false);
    EXPECT_TRUE(state.isLocked());
}

TEST(LockState, withdrawnRequest_leavesWhatIsConfirmed)
{
    LockState state;
    state.request();
    state.say(Voice::ScreenSaver, true);
    state.withdrawRequest();
    EXPECT_TRUE(state.isLocked());
    state.say(Voice::ScreenSaver, false);
    EXPECT_FALSE(state.isLocked());
}
