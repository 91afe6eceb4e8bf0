import QtQuick
import Ostrel.Ui

BareButton {
    id: root

    required property date date
    required property bool inMonth
    // The day that the keyboard stands on.
    required property bool isShown

    text: date.getDate()
    focusPolicy: Qt.NoFocus
    Accessible.name: date.toLocaleDateString(Qt.locale(), Locale.LongFormat)

    contentItem: Text {
        text: root.text
        textFormat: Text.PlainText
        color: root.isShown ? Theme.accentInk : root.inMonth ? Theme.ink : Theme.ink2
        horizontalAlignment: Text.AlignHCenter
        verticalAlignment: Text.AlignVCenter
        font.family: Theme.sans
        font.pixelSize: Theme.noteSize
        font.weight: root.inMonth ? Font.Medium : Font.Light
    }
    background: Rectangle {
        radius: Theme.fieldRadius
        color: root.isShown ? Theme.accent : Theme.paper2
        visible: root.isShown || root.hovered
    }
}
