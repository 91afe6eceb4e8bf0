import QtQuick
import Ostrel.Model
import Ostrel.Ui

// The card that lies over the screens, as the model says: the archive's wizard before its place, that before the export.
Loader {
    id: root

    required property PopoverModel model

    active: model.archive.archiveWizardStep !== ArchiveForm.Closed
        || model.archiveTarget.open
        || model.footageExport.archiveExportCard !== ExportForm.Closed
    focus: active
    sourceComponent: model.archive.archiveWizardStep !== ArchiveForm.Closed ? wizard
        : model.archiveTarget.open ? place : exportCard

    Component {
        id: wizard

        ArchiveWizard {
            archive: root.model.archive
        }
    }
    Component {
        id: place

        ArchiveTargetCard {
            target: root.model.archiveTarget
            archive: root.model.archive
        }
    }
    Component {
        id: exportCard

        ExportCard {
            footageExport: root.model.footageExport
            archive: root.model.archive
        }
    }
}
