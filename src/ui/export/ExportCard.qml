import QtQuick
import Ostrel.Model
import Ostrel.Ui

// Restores footage from the archive into a folder.
OverlayCard {
    id: root

    required property ExportForm footageExport
    required property ArchiveForm archive

    title: footageExport.archiveExportCard === ExportForm.Running ? qsTr("Exporting…")
        : footageExport.archiveExportCard === ExportForm.Finished ? footageExport.resultTitle : qsTr("Export footage")
    onDismissed: footageExport.closeArchiveExportCard()

    Loader {
        width: parent.width
        focus: true
        sourceComponent: root.footageExport.archiveExportCard === ExportForm.Running ? running
            : root.footageExport.archiveExportCard === ExportForm.Finished ? finished : configure
        onLoaded: if (root.activeFocus) (item as Item).forceActiveFocus()
    }

    Component {
        id: configure

        ExportConfigurePage {
            footageExport: root.footageExport
            archive: root.archive
        }
    }
    Component {
        id: running

        ExportRunningPage {
            footageExport: root.footageExport
        }
    }
    Component {
        id: finished

        ExportFinishedPage {
            footageExport: root.footageExport
        }
    }
}
