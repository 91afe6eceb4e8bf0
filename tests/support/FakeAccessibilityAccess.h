#pragma once

#include "context/AccessibilityAccess.h"

#include <functional>
#include <gtest/gtest.h>

namespace ostrel {

/// A consent that the test decides about. A call that the test has no answer for fails it.
/// Set the answers before the calls begin; they come on the caller's thread.
class FakeAccessibilityAccess final : public AccessibilityAccess
{
public:
    std::function<bool()> onIsTrusted;
    std::function<bool()> onRequest;

    bool isTrusted() override { return answer(onIsTrusted, "isTrusted"); }
    bool request() override { return answer(onRequest, "request"); }

private:
    static bool answer(const std::function<bool()> &expected, const char *call)
    {
        if (expected)
            return expected();
        ADD_FAILURE() << "unexpected call of AccessibilityAccess::" << call;
        return false;
    }
};

} // namespace ostrel
