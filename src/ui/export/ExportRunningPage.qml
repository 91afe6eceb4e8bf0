import QtQuick
import Ostrel.Model
import Ostrel.Ui

CardPage {
    id: root

    required property ExportForm footageExport

    Rectangle {
        width: parent.width
        height: 6
        radius: 3
        color: Theme.line
        Accessible.role: Accessible.ProgressBar
        Accessible.name: label.text

        Rectangle {
            anchors.left: parent.left
            width: parent.width * root.footageExport.progress
            height: parent.height
            radius: 3
            color: Theme.accent
        }
    }
    NoteText {
        id: label

        width: parent.width
        text: root.footageExport.progressText
    }

    trailing: PillButtonStyle {
        focus: true
        quiet: true
        text: qsTr("Cancel")
        onClicked: root.footageExport.cancelArchiveExport()
    }
}
