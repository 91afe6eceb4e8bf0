import QtQuick
import Ostrel.Model

// The card that lies over the screens, as the model says: the archive's wizard before its place, that before the export.
// Most people never open one, so nothing of them is loaded before it is asked for: that is half a megabyte.
Loader {
    id: root

    required property PopoverModel model
    readonly property string card: model.archive.archiveWizardStep !== ArchiveForm.Closed ? "archive/ArchiveWizard.qml"
        : model.archiveTarget.open ? "archive/ArchiveTargetCard.qml"
        : model.footageExport.archiveExportCard !== ExportForm.Closed ? "export/ExportCard.qml" : ""

    active: card !== ""
    focus: active
    onCardChanged: load()
    Component.onCompleted: load()

    function load() {
        if (card === "archive/ArchiveWizard.qml")
            setSource(card, { archive: model.archive })
        else if (card === "archive/ArchiveTargetCard.qml")
            setSource(card, { target: model.archiveTarget, archive: model.archive })
        else if (card === "export/ExportCard.qml")
            setSource(card, { footageExport: model.footageExport, archive: model.archive })
        else
            source = ""
    }
}
