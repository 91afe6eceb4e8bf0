import QtQuick
import Ostrel.Ui

// Says that pictures are analysed with the user's own key.
Rectangle {
    id: root

    implicitWidth: row.implicitWidth + 20
    implicitHeight: row.implicitHeight + 8
    radius: height / 2
    color: Theme.accentTint
    Accessible.role: Accessible.StaticText
    Accessible.name: label.text

    Row {
        id: row

        anchors.centerIn: parent
        spacing: 6

        Symbol {
            anchors.verticalCenter: parent.verticalCenter
            symbol: "key.fill"
            size: 12
            color: Theme.accent
        }
        Text {
            id: label

            text: qsTr("BYOK inference active")
            textFormat: Text.PlainText
            color: Theme.accent
            font.family: Theme.sans
            font.pixelSize: Theme.noteSize
            font.weight: Font.DemiBold
            Accessible.ignored: true
        }
    }
}
