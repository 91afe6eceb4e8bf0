#include "platform/kwin/KWinEffects.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace ostrel {

namespace {

using namespace std::string_view_literals;

constexpr std::array names{
    "coverswitch"sv, "cube"sv,          "cubeslide"sv,      "desktopgrid"sv,    "eyeonscreen"sv, "fallapart"sv,
    "flipswitch"sv,  "glide"sv,         "lookingglass"sv,   "magiclamp"sv,      "magnifier"sv,   "minimizeanimation"sv,
    "overview"sv,    "sheet"sv,         "presentwindows"sv, "slide"sv,          "slideback"sv,   "squash"sv,
    "windowview"sv,  "wobblywindows"sv, "windowaperture"sv, "thumbnailaside"sv, "zoom"sv,
};

/// Before the names of those that are scripts, in KWin 5.
constexpr auto scriptPrefix = "kwin4_effect_"sv;

} // namespace

bool showsWindowsElsewhere(const QByteArray &effect)
{
    std::string_view name(effect.constData(), std::size_t(effect.size()));
    if (name.starts_with(scriptPrefix))
        name.remove_prefix(scriptPrefix.size());
    return std::ranges::find(names, name) != names.end();
}

} // namespace ostrel
