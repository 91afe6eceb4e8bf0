import QtQuick
import Ostrel.Model
import Ostrel.Ui

// The archive of raw footage: what can be done with it as it stands.
FieldGroup {
    id: root

    required property ArchiveForm archive
    required property ArchiveTargetForm target
    required property ExportForm footageExport

    readonly property bool paused: archive.hasVault && !archive.archiveEnabled

    title: qsTr("Cloud Archive")
    remark: paused ? qsTr("Paused") : ""

    Component.onCompleted: {
        archive.refreshArchiveStatus()
        target.refreshArchiveTarget()
    }

    NoteText {
        width: parent.width
        text: qsTr("Back up raw footage to the cloud, encrypted on this Mac.")
    }

    ArchivePlaceLine {
        width: parent.width
        visible: root.target.offered
        enabled: !root.archive.archiveBusy
        target: root.target
    }

    Flow {
        width: parent.width
        spacing: Theme.step * 2
        enabled: !root.archive.archiveBusy

        ChooseButtonStyle {
            visible: !root.archive.hasVault && !root.archive.archiveEnabled
            text: qsTr("Enable")
            onClicked: root.archive.beginArchiveWizard()
        }
        ChooseButtonStyle {
            visible: root.archive.archiveEnabled
            text: qsTr("Disable")
            onClicked: root.archive.disableArchive()
        }
        ChooseButtonStyle {
            visible: root.paused
            text: qsTr("Resume")
            onClicked: root.archive.resumeArchive()
        }
        ChooseButtonStyle {
            visible: !root.archive.archiveEnabled
            text: qsTr("Use key")
            onClicked: root.archive.recoverArchiveWithKey()
        }
        ChooseButtonStyle {
            visible: root.archive.hasVault
            text: qsTr("Export footage")
            onClicked: root.footageExport.openArchiveExportCard()
        }
        BusyDots {
            visible: root.archive.archiveBusy && root.archive.archiveWizardStep === ArchiveForm.Closed
        }
    }

    MessageLine {
        width: parent.width
        // The wizard and the cards show it themselves while they are open.
        visible: text !== "" && root.archive.archiveWizardStep === ArchiveForm.Closed && !root.target.open
        text: root.archive.archiveMessage
        isError: root.archive.archiveMessageIsError
    }
}
