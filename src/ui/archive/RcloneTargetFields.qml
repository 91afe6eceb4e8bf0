import QtQuick
import Ostrel.Model
import Ostrel.Ui

Column {
    id: root

    required property ArchiveTargetForm target

    signal accepted

    spacing: Theme.step * 2

    CompactTextFieldStyle {
        width: parent.width
        text: root.target.remote
        placeholderText: "mycloud:footage"
        Accessible.name: qsTr("Remote")
        onTextEdited: root.target.remote = text
        onAccepted: root.accepted()
    }
    NoteText {
        width: parent.width
        text: qsTr("A remote of your own rclone configuration, which keeps its credentials.")
    }
}
