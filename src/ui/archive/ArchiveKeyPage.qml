import QtQuick
import Ostrel.Model
import Ostrel.Ui

CardPage {
    id: root

    required property ArchiveForm archive

    BodyText {
        width: parent.width
        color: Theme.ink2
        text: qsTr("This key encrypts your footage. It's shown only once.")
    }

    Rectangle {
        width: parent.width
        height: key.implicitHeight + 2 * Theme.step * 2
        radius: Theme.fieldRadius
        color: Theme.card
        border.width: key.activeFocus ? Theme.focusWidth : 1
        border.color: key.activeFocus ? Theme.accent : Theme.line

        TextEdit {
            id: key

            anchors.left: parent.left
            anchors.right: parent.right
            anchors.margins: Theme.step * 2
            anchors.verticalCenter: parent.verticalCenter
            text: root.archive.archiveRecoveryKey
            textFormat: TextEdit.PlainText
            readOnly: true
            selectByMouse: true
            activeFocusOnTab: true
            wrapMode: TextEdit.WrapAnywhere
            color: Theme.ink
            selectionColor: Theme.accent
            selectedTextColor: Theme.accentInk
            font.family: Theme.fixed
            font.pixelSize: Theme.labelSize
            Accessible.role: Accessible.EditableText
            Accessible.readOnly: true
            Accessible.name: qsTr("Recovery key")
        }
    }

    NoteText {
        width: parent.width
        color: Theme.error
        text: qsTr("Without this key, archived footage cannot be recovered.")
    }
    MessageLine {
        width: parent.width
        text: root.archive.archiveMessage
        isError: root.archive.archiveMessageIsError
    }

    leading: [
        ChooseButtonStyle {
            text: qsTr("Copy")
            onClicked: root.archive.copyArchiveRecoveryKey()
        },
        ChooseButtonStyle {
            text: qsTr("Download .txt")
            onClicked: root.archive.downloadArchiveRecoveryKey()
        }
    ]
    trailing: PillButtonStyle {
        focus: true
        text: qsTr("Next")
        onClicked: root.archive.archiveWizardNext()
    }
}
