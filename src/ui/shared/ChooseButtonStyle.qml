import QtQuick

// A quiet button on a card of its own.
BareButton {
    id: root

    implicitWidth: label.implicitWidth + leftPadding + rightPadding
    implicitHeight: Theme.controlHeight
    horizontalPadding: 12
    opacity: enabled ? 1 : 0.45

    contentItem: Text {
        id: label

        text: root.text
        textFormat: Text.PlainText
        color: Theme.ink
        elide: Text.ElideRight
        horizontalAlignment: Text.AlignHCenter
        verticalAlignment: Text.AlignVCenter
        font.family: Theme.sans
        font.pixelSize: Theme.labelSize
    }
    background: Rectangle {
        radius: Theme.fieldRadius
        color: root.down ? Theme.cardPressed : root.hovered ? Theme.cardHover : Theme.card
        border.width: 1
        border.color: root.hovered ? Theme.ink3 : Theme.line
    }

    FocusRing {
        control: root
    }
}
