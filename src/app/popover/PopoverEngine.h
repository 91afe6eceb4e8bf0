#pragma once

#include <QUrl>

class QQmlEngine;

namespace ostrel {

/// Teaches an engine what the screens in src/ui need: the types of this folder and the symbols. Before anything of
/// them is loaded.
void preparePopoverEngine(QQmlEngine &engine);

/// The root of the screens, `PopoverView`. Its required property `model` takes a PopoverModel.
QUrl popoverViewUrl();

/// The same within its shadow, `PanelSheet`: what the window under the tray's icon shows.
QUrl panelSheetUrl();

} // namespace ostrel
