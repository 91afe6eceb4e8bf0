import QtQuick
import Ostrel.Model
import Ostrel.Ui

// Where the archive lies, and the way to another place.
Flow {
    id: root

    required property ArchiveTargetForm target

    spacing: Theme.step * 2

    NoteText {
        width: Theme.besides(parent.width, change.width, parent.spacing)
        height: width < parent.width ? change.height : implicitHeight
        verticalAlignment: Text.AlignVCenter
        text: root.target.place !== "" ? qsTr("Lies in %1").arg(root.target.place) : qsTr("No place is chosen yet.")
        elide: Text.ElideMiddle
        wrapMode: Text.NoWrap
    }
    ChooseButtonStyle {
        id: change

        text: root.target.place !== "" ? qsTr("Change place…") : qsTr("Choose place…")
        onClicked: root.target.openArchiveTargetCard()
    }
}
