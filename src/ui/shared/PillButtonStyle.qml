import QtQuick

// The one thing that a screen or a card is about to do.
BareButton {
    id: root

    implicitWidth: Math.max(64, label.implicitWidth + leftPadding + rightPadding)
    implicitHeight: Theme.controlHeight + Theme.step
    horizontalPadding: 16
    opacity: enabled ? 1 : 0.45

    contentItem: Text {
        id: label

        text: root.text
        textFormat: Text.PlainText
        color: Theme.accentInk
        elide: Text.ElideRight
        horizontalAlignment: Text.AlignHCenter
        verticalAlignment: Text.AlignVCenter
        font.family: Theme.sans
        font.pixelSize: Theme.bodySize
        font.weight: Font.DemiBold
    }
    background: Rectangle {
        radius: Theme.fieldRadius
        color: root.down ? Theme.accentPressed : root.hovered ? Theme.accentHover : Theme.accent
    }

    FocusRing {
        control: root
    }
}
