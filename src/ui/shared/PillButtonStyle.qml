import QtQuick

// The one thing that a screen or a card is about to do; and, quietly, what stands beside it.
BareButton {
    id: root

    property bool quiet: false

    implicitWidth: Math.max(64, Math.min(Math.ceil(label.implicitWidth) + leftPadding + rightPadding, Theme.widestButton))
    implicitHeight: Math.max(Theme.controlHeight + Theme.step, label.implicitHeight + 2 * Theme.step)
    horizontalPadding: 16
    opacity: enabled ? 1 : 0.45

    contentItem: Text {
        id: label

        text: root.text
        textFormat: Text.PlainText
        color: root.quiet ? Theme.ink : Theme.accentInk
        wrapMode: Text.Wrap
        horizontalAlignment: Text.AlignHCenter
        verticalAlignment: Text.AlignVCenter
        font.family: Theme.sans
        font.pixelSize: Theme.bodySize
        font.weight: root.quiet ? Font.Normal : Font.DemiBold
    }
    background: Rectangle {
        radius: Theme.fieldRadius
        color: root.quiet ? (root.down ? Theme.cardPressed : root.hovered ? Theme.cardHover : Theme.card)
                          : (root.down ? Theme.accentPressed : root.hovered ? Theme.accentHover : Theme.accent)
        border.width: root.quiet ? 1 : 0
        border.color: Theme.line
    }

    FocusRing {
        control: root
    }
}
