import QtQuick

// Words in a header that can be pressed.
BareButton {
    id: root

    implicitWidth: label.implicitWidth + leftPadding + rightPadding
    implicitHeight: Math.max(28, label.implicitHeight + topPadding + bottomPadding)
    horizontalPadding: Theme.step * 2

    contentItem: Text {
        id: label

        text: root.text
        textFormat: Text.PlainText
        color: Theme.ink
        horizontalAlignment: Text.AlignHCenter
        verticalAlignment: Text.AlignVCenter
        fontSizeMode: Text.HorizontalFit
        minimumPixelSize: 11
        font.family: Theme.serif
        font.pixelSize: Theme.bodySize
        font.weight: Font.DemiBold
    }
    background: Rectangle {
        radius: Theme.fieldRadius
        color: Theme.paper2
        visible: root.hovered || root.down
    }

    FocusRing {
        control: root
    }
}
