#include "platform/windowsystem/PanelWindowSystem.h"

#include "base/Fault.h"

#include <QTemporaryDir>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace ostrel;
using testing::HasSubstr;

namespace {

QProcessEnvironment environment(std::initializer_list<std::pair<const char *, const char *>> variables)
{
    QProcessEnvironment result;
    for (const auto &[name, value] : variables)
        result.insert(QLatin1String(name), QLatin1String(value));
    return result;
}

/// The sentence that is shown.
std::string refusal(const QProcessEnvironment &variables)
{
    const auto chosen = choosePanelWindowSystem(variables);
    return chosen ? "chosen: " + chosen->toolkitPlatform.toStdString()
                  : chosen.error().localizedDescription.toStdString();
}

TEST(PanelWindowSystem, displayThatIsNotThere_isRefusedByItsName)
{
    EXPECT_THAT(refusal(environment({{"DISPLAY", ":64999"}})),
                HasSubstr("No X display can be reached (DISPLAY is \":64999\")"));
    EXPECT_THAT(refusal(environment({{"DISPLAY", "nonsense"}})), HasSubstr("nonsense"));
}

TEST(PanelWindowSystem, compositorThatIsNotThere_isRefusedByItsName)
{
    EXPECT_THAT(refusal(environment({{"WAYLAND_DISPLAY", "/nowhere/wayland-7"}})),
                HasSubstr("No Wayland display can be reached"));
    EXPECT_THAT(refusal(environment({{"DISPLAY", ":64999"}, {"WAYLAND_DISPLAY", "/nowhere/wayland-7"}})),
                HasSubstr("No Wayland display can be reached"))
        << "tried after X11";
}

TEST(PanelWindowSystem, platformThatTheUserNames_isTaken)
{
    EXPECT_EQ(refusal(environment({{"DISPLAY", ":64999"}, {"QT_QPA_PLATFORM", "offscreen"}})), "chosen: offscreen");
    EXPECT_THAT(refusal(environment({{"DISPLAY", ":64999"}, {"QT_QPA_PLATFORM", "xcb"}})), HasSubstr("No X display"));
    EXPECT_THAT(refusal(environment({{"WAYLAND_DISPLAY", "/nowhere/wayland-7"}, {"QT_QPA_PLATFORM", "wayland;xcb"}})),
                HasSubstr("No Wayland display"));
}

} // namespace
