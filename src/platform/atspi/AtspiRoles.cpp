#include "platform/atspi/AtspiRoles.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace ostrel {

namespace {

struct RoleName {
    quint32 role;
    std::u16string_view name;
};

/// Menus that one opens to choose from stand with the buttons that open them, for they look alike while one does.
constexpr std::array roleNames = {
    RoleName{7, u"AXCheckBox"},
    RoleName{11, u"AXComboBox"},
    RoleName{29, u"AXStaticText"},  // label
    RoleName{36, u"AXPopUpButton"}, // option pane
    RoleName{38, u"AXTabGroup"},    // list of page tabs
    RoleName{40, u"AXTextField"},   // password
    RoleName{41, u"AXPopUpButton"}, // popup menu
    RoleName{AtspiRole::pushButton, u"AXButton"},
    RoleName{44, u"AXRadioButton"},
    RoleName{51, u"AXSlider"},
    RoleName{55, u"AXTable"},
    RoleName{60, u"AXTextArea"}, // terminal
    RoleName{AtspiRole::text, u"AXTextField"},
    RoleName{62, u"AXButton"}, // one that stays down
    RoleName{66, u"AXTable"},  // with a tree in its first column
    RoleName{AtspiRole::entry, u"AXTextField"},
    RoleName{88, u"AXLink"},
    RoleName{AtspiRole::documentWeb, u"AXWebArea"},
    RoleName{116, u"AXStaticText"},
    RoleName{129, u"AXMenuButton"},
};

} // namespace

bool hasTraits(quint32 role)
{
    return role == AtspiRole::text || role == AtspiRole::entry || role == AtspiRole::pushButton;
}

QString accessibilityRoleName(quint32 role, const AtspiRoleTraits &traits)
{
    if (hasTraits(role)) {
        if (role == AtspiRole::pushButton && traits.opensMenu)
            return QStringLiteral("AXMenuButton");
        if (role != AtspiRole::pushButton && traits.isSearchField)
            return QStringLiteral("AXSearchField");
        if (role != AtspiRole::pushButton && traits.isMultiLine)
            return QStringLiteral("AXTextArea");
    }
    const auto *const found = std::ranges::find(roleNames, role, &RoleName::role);
    return found == roleNames.end() ? QString() : QString::fromUtf16(found->name.data(), qsizetype(found->name.size()));
}

} // namespace ostrel
