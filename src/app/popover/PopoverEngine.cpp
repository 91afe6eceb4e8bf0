#include "app/popover/PopoverEngine.h"

#include "app/popover/ShadowProvider.h"
#include "app/popover/SymbolProvider.h"

#include <QQmlEngine>

// Written by the build. Naming it keeps the linker from dropping the registration of a static library's types.
void qml_register_types_Ostrel_Model(); // NOLINT(readability-identifier-naming)

namespace ostrel {

void preparePopoverEngine(QQmlEngine &engine)
{
    [[maybe_unused]] auto *volatile registration = &qml_register_types_Ostrel_Model;
    engine.addImportPath(QStringLiteral("qrc:/"));
    engine.addImageProvider(QStringLiteral("symbol"), new SymbolProvider);
    engine.addImageProvider(QStringLiteral("shadow"), new ShadowProvider);
}

QUrl popoverViewUrl()
{
    return QUrl(QStringLiteral("qrc:/Ostrel/Ui/PopoverView.qml"));
}

QUrl panelSheetUrl()
{
    return QUrl(QStringLiteral("qrc:/Ostrel/Ui/PanelSheet.qml"));
}

} // namespace ostrel
