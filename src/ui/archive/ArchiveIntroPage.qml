import QtQuick
import Ostrel.Model
import Ostrel.Ui

CardPage {
    id: root

    required property ArchiveForm archive

    BodyText {
        width: parent.width
        text: qsTr("Keeps an encrypted copy of your raw footage in the cloud. Everything is encrypted on this Mac — Tamsk can never view your recordings. Restore them anytime, on any Mac, with your recovery key.")
    }
    MessageLine {
        width: parent.width
        text: root.archive.archiveMessage
        isError: root.archive.archiveMessageIsError
    }

    trailing: [
        PillButtonStyle {
            quiet: true
            text: qsTr("Cancel")
            onClicked: root.archive.cancelArchiveWizard()
        },
        PillButtonStyle {
            focus: true
            enabled: !root.archive.archiveBusy
            text: root.archive.archiveBusy ? qsTr("Preparing…") : qsTr("Continue")
            onClicked: root.archive.archiveWizardContinue()
        }
    ]
}
