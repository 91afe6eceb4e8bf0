import QtQuick
import Ostrel.Model
import Ostrel.Ui

// Leads to an archive that is on, whose key its owner has kept.
OverlayCard {
    id: root

    required property ArchiveForm archive

    title: archive.archiveWizardStep === ArchiveForm.SaveKey ? qsTr("Save your recovery key")
        : archive.archiveWizardStep === ArchiveForm.Confirm ? qsTr("Turn on Cloud Archive") : qsTr("Cloud Archive")
    onDismissed: archive.cancelArchiveWizard()

    Loader {
        id: page

        width: parent.width
        focus: true
        sourceComponent: root.archive.archiveWizardStep === ArchiveForm.SaveKey ? saveKey
            : root.archive.archiveWizardStep === ArchiveForm.Confirm ? confirm : intro
        onLoaded: if (root.activeFocus) (item as Item).forceActiveFocus()
    }

    Component {
        id: intro

        ArchiveIntroPage {
            archive: root.archive
        }
    }
    Component {
        id: saveKey

        ArchiveKeyPage {
            archive: root.archive
        }
    }
    Component {
        id: confirm

        ArchiveConfirmPage {
            archive: root.archive
        }
    }
}
