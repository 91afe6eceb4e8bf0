import QtQuick

// A quiet button on a card of its own.
BareButton {
    id: root

    implicitWidth: Math.min(Math.ceil(label.implicitWidth) + leftPadding + rightPadding, Theme.widestButton)
    implicitHeight: Math.max(Theme.controlHeight, label.implicitHeight + 2 * Theme.step)
    horizontalPadding: 12
    opacity: enabled ? 1 : 0.45

    contentItem: Text {
        id: label

        text: root.text
        textFormat: Text.PlainText
        color: Theme.ink
        wrapMode: Text.Wrap
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
