#pragma once

#include <QString>

namespace ostrel {

/// Roles and states by the numbers that travel on the bus.
namespace AtspiRole {
constexpr quint32 documentWeb = 95;
constexpr quint32 entry = 79;
constexpr quint32 pushButton = 43;
constexpr quint32 text = 61;
} // namespace AtspiRole

namespace AtspiState {
constexpr int active = 1;
constexpr int focused = 12;
constexpr int multiLine = 17;
constexpr int showing = 25;
} // namespace AtspiState

/// What tells apart elements that have the same number.
struct AtspiRoleTraits {
    bool isMultiLine = false;
    bool isSearchField = false;
    bool opensMenu = false;
};

/// Whether the name of a role depends on its traits; reading them takes further round trips.
bool hasTraits(quint32 role);

/// The role as the context rules call it, "AXButton" as an example; empty for a role that has no name there.
QString accessibilityRoleName(quint32 role, const AtspiRoleTraits &traits);

} // namespace ostrel
