import QtQuick
import Ostrel.Ui

// A button of an alert; the first of them is the one that is most likely meant.
PillButtonStyle {
    id: root

    property bool prominent: true

    contentItem: Text {
        text: root.text
        textFormat: Text.PlainText
        color: root.prominent ? Theme.accentInk : Theme.ink
        elide: Text.ElideRight
        horizontalAlignment: Text.AlignHCenter
        verticalAlignment: Text.AlignVCenter
        font.family: Theme.sans
        font.pixelSize: Theme.bodySize
        font.weight: root.prominent ? Font.DemiBold : Font.Normal
    }
    background: Rectangle {
        radius: Theme.fieldRadius
        color: root.prominent ? (root.down ? Theme.accentPressed : root.hovered ? Theme.accentHover : Theme.accent)
                              : (root.down ? Theme.cardPressed : root.hovered ? Theme.cardHover : Theme.card)
        border.width: root.prominent ? 0 : 1
        border.color: Theme.line
    }
}
