import QtQuick
import Ostrel.Model
import Ostrel.Ui

// The card that lies over the screens, as the model says: the archive's wizard before the export.
Loader {
    id: root

    required property PopoverModel model

    active: model.archive.archiveWizardStep !== ArchiveForm.Closed
        || model.footageExport.archiveExportCard !== ExportForm.Closed
    focus: active
    sourceComponent: model.archive.archiveWizardStep !== ArchiveForm.Closed ? wizard : exportCard

    Component {
        id: wizard

        ArchiveWizard {
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
