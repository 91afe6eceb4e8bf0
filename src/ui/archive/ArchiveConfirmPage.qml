import QtQuick
import Ostrel.Model
import Ostrel.Ui

CardPage {
    id: root

    required property ArchiveForm archive

    CheckLine {
        width: parent.width
        focus: true
        text: qsTr("I saved my recovery key somewhere safe")
        checked: root.archive.archiveKeySavedConfirmed
        onToggled: root.archive.archiveKeySavedConfirmed = checked
    }
    MessageLine {
        width: parent.width
        text: root.archive.archiveMessage
        isError: root.archive.archiveMessageIsError
    }

    leading: PillButtonStyle {
        enabled: !root.archive.archiveBusy
        quiet: true
        text: qsTr("Back")
        onClicked: root.archive.archiveWizardBack()
    }
    trailing: [
        BusyDots {
            visible: root.archive.archiveBusy
            height: Theme.controlHeight + Theme.step
        },
        PillButtonStyle {
            enabled: root.archive.archiveKeySavedConfirmed && !root.archive.archiveBusy
            text: qsTr("Turn on archive")
            onClicked: root.archive.archiveWizardTurnOn()
        }
    ]
}
