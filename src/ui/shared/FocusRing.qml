import QtQuick
import QtQuick.Templates as T

// Laid around a control that the keyboard has come to.
Rectangle {
    id: root

    required property T.Control control

    anchors.fill: parent
    anchors.margins: -Theme.focusWidth - 1
    radius: Theme.fieldRadius + Theme.focusWidth + 1
    color: "transparent"
    border.width: Theme.focusWidth
    border.color: Theme.accent
    visible: control.visualFocus
}
