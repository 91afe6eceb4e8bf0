#include "platform/atspi/AtspiMatchRule.h"

#include "platform/atspi/AtspiBus.h"
#include "platform/atspi/AtspiRoles.h"

#include <array>
#include <span>

namespace ostrel {

namespace {

constexpr int fewPages = 4;
constexpr int fewFocused = 8;

/// A set of bits in an array of 32-bit words. @return floating
template <std::size_t words>
GVariant *bits(std::span<const int> set)
{
    std::array<quint32, words> array{};
    for (const int bit : set)
        array[std::size_t(bit / 32)] |= 1U << (bit % 32);
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE("ai"));
    for (const quint32 word : array)
        g_variant_builder_add(&builder, "i", gint32(word));
    return g_variant_builder_end(&builder);
}

/// @param states all of them
/// @param roles  one of them; none stands for any
GlibHandle<GVariant> argumentsFor(std::span<const int> states, std::span<const int> roles, int maximum)
{
    // How several bits, attributes, roles or interfaces go together.
    constexpr int all = 1;
    constexpr int any = 2;
    constexpr guint32 inTreeOrder = 1;
    constexpr gboolean inverted = FALSE;
    constexpr gboolean alsoBelowMatches = TRUE;
    GVariant *const matchRule =
        g_variant_new("(@aii@a{ss}i@aii@asib)", bits<2>(states), all, g_variant_new("a{ss}", nullptr), all,
                      bits<4>(roles), roles.empty() ? all : any, g_variant_new("as", nullptr), all, inverted);
    return AtspiBus::arguments(
        g_variant_new("(@(aiia{ss}iaiiasib)uib)", matchRule, inTreeOrder, maximum, alsoBelowMatches));
}

AtspiMatchRule showingPages(int maximum)
{
    constexpr std::array states = {AtspiState::showing};
    constexpr std::array roles = {int(AtspiRole::documentWeb)};
    return {.arguments = argumentsFor(states, roles, maximum), .maximum = maximum};
}

AtspiMatchRule focused(int maximum)
{
    constexpr std::array states = {AtspiState::focused};
    return {.arguments = argumentsFor(states, {}, maximum), .maximum = maximum, .isWhole = maximum > 1};
}

} // namespace

const AtspiMatchRule &AtspiMatchRule::firstPage()
{
    static const AtspiMatchRule rule = showingPages(1);
    return rule;
}

const AtspiMatchRule &AtspiMatchRule::pages()
{
    static const AtspiMatchRule rule = showingPages(fewPages);
    return rule;
}

const AtspiMatchRule &AtspiMatchRule::firstFocus()
{
    static const AtspiMatchRule rule = focused(1);
    return rule;
}

const AtspiMatchRule &AtspiMatchRule::everyFocus()
{
    static const AtspiMatchRule rule = focused(fewFocused);
    return rule;
}

} // namespace ostrel
