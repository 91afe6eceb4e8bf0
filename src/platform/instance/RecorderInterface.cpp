#include "platform/instance/RecorderInterface.h"

#include <algorithm>
#include <array>

namespace ostrel::RecorderInterface {

namespace {

struct Name {
    SettingAnswer::Outcome outcome;
    const char *text;
};

using Outcome = SettingAnswer::Outcome;
constexpr std::array names{Name{Outcome::AtOnce, "at-once"}, Name{Outcome::NextRecording, "next-recording"},
                           Name{Outcome::RecordingEnds, "recording-ends"}, Name{Outcome::Refused, "refused"},
                           Name{Outcome::NotSaved, "not-saved"}};

} // namespace

const char *const introspection = R"(<node>
  <interface name="com.tamsk.ostrel.Recorder1">
    <method name="ChangeSetting">
      <arg name="key" type="s" direction="in"/>
      <arg name="value" type="h" direction="in"/>
      <arg name="outcome" type="s" direction="out"/>
      <arg name="words" type="s" direction="out"/>
    </method>
    <method name="Complaint">
      <arg name="words" type="s" direction="out"/>
    </method>
  </interface>
  <interface name="org.freedesktop.Application">
    <method name="Activate">
      <arg name="platform_data" type="a{sv}" direction="in"/>
    </method>
    <method name="Open">
      <arg name="uris" type="as" direction="in"/>
      <arg name="platform_data" type="a{sv}" direction="in"/>
    </method>
    <method name="ActivateAction">
      <arg name="action_name" type="s" direction="in"/>
      <arg name="parameter" type="av" direction="in"/>
      <arg name="platform_data" type="a{sv}" direction="in"/>
    </method>
  </interface>
</node>)";

QByteArray outcomeName(SettingAnswer::Outcome outcome)
{
    return std::ranges::find(names, outcome, &Name::outcome)->text;
}

std::optional<SettingAnswer::Outcome> outcomeNamed(const QByteArray &name)
{
    const auto *found = std::ranges::find_if(names, [&name](const Name &each) { return name == each.text; });
    return found == names.end() ? std::nullopt : std::optional(found->outcome);
}

} // namespace ostrel::RecorderInterface
