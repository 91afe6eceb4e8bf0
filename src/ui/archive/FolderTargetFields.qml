import QtQuick
import Ostrel.Model
import Ostrel.Ui

Column {
    id: root

    required property ArchiveTargetForm target

    signal accepted

    spacing: Theme.step * 2

    Flow {
        width: parent.width
        spacing: Theme.step * 2

        CompactTextFieldStyle {
            width: Theme.besides(parent.width, choose.width, parent.spacing)
            text: root.target.path
            placeholderText: "/mnt/nas/footage"
            Accessible.name: qsTr("Folder")
            onTextEdited: root.target.path = text
            onAccepted: root.accepted()
        }
        ChooseButtonStyle {
            id: choose

            text: qsTr("Choose folder…")
            onClicked: root.target.chooseArchiveTargetFolder()
        }
    }
    NoteText {
        width: parent.width
        text: qsTr("The folder has to be there already: a disk that isn't connected is waited for.")
    }
}
