#include "base/Fault.h"
#include "platform/portal/PortalBus.h"

#include <gtest/gtest.h>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

Error refusalAfter(std::chrono::milliseconds waited, guint32 code = PortalResponse::declined)
{
    const PortalResponse response{.code = code, .results = {}, .waited = waited};
    return response.refusal();
}

bool saysThatTheDialogMayNotWork(const Error &error)
{
    return error.localizedDescription.contains(QStringLiteral("the desktop's own dialog may not work"));
}

TEST(PortalRefusal, thatTookAsLongAsAUserTakes_isTheUsers)
{
    const Error error = refusalAfter(300ms);
    EXPECT_TRUE(isFault(error, Fault::ScreenCaptureDeclined));
    EXPECT_EQ(error.localizedDescription, faultError(Fault::ScreenCaptureDeclined).localizedDescription);
}

TEST(PortalRefusal, thatCameBeforeAnybodyCouldAnswer_isTheSameRefusalWithAHint)
{
    const Error error = refusalAfter(299ms);
    EXPECT_TRUE(isFault(error, Fault::ScreenCaptureDeclined));
    EXPECT_TRUE(saysThatTheDialogMayNotWork(error)) << qPrintable(error.localizedDescription);
}

TEST(PortalRefusal, byAPortalThatFailed_isNoRefusalOfTheUsers)
{
    const Error error = refusalAfter(0ms, 2);
    EXPECT_TRUE(isFault(error, Fault::PictureRefused));
    EXPECT_FALSE(saysThatTheDialogMayNotWork(error));
}

} // namespace
