import QtQuick

// A small action beside the name of a field, written like a link.
BareButton {
    id: root

    implicitWidth: label.implicitWidth
    implicitHeight: label.implicitHeight + Theme.step

    contentItem: Text {
        id: label

        text: root.text
        textFormat: Text.PlainText
        color: Theme.accent
        verticalAlignment: Text.AlignVCenter
        font.family: Theme.sans
        font.pixelSize: Theme.labelSize
        font.weight: Font.DemiBold
        font.underline: root.hovered
    }

    FocusRing {
        control: root
    }
}
