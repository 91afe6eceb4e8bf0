#pragma once

#include "capture/ScreenCaptureAccess.h"

#include <functional>
#include <gtest/gtest.h>

namespace ostrel {

/// A session whose screens the test shows or hides. A call that the test has no answer for fails it.
/// Set the answers before the calls begin; they come on the caller's thread.
class FakeScreenCaptureAccess final : public ScreenCaptureAccess
{
public:
    std::function<bool()> onPreflight;
    std::function<bool()> onRequest;

    bool preflight() override { return answer(onPreflight, "preflight"); }
    bool request() override { return answer(onRequest, "request"); }

private:
    static bool answer(const std::function<bool()> &expected, const char *call)
    {
        if (expected)
            return expected();
        ADD_FAILURE() << "unexpected call of ScreenCaptureAccess::" << call;
        return false;
    }
};

} // namespace ostrel
