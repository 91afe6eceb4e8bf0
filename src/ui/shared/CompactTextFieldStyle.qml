import QtQuick
import QtQuick.Templates as T

T.TextField {
    id: root

    implicitHeight: Theme.controlHeight
    implicitWidth: 120
    leftPadding: 10
    rightPadding: 10
    color: Theme.ink
    placeholderTextColor: Theme.ink2
    selectionColor: Theme.accent
    selectedTextColor: Theme.accentInk
    selectByMouse: true
    verticalAlignment: TextInput.AlignVCenter
    font.family: Theme.sans
    font.pixelSize: Theme.labelSize

    Accessible.role: Accessible.EditableText

    background: Rectangle {
        radius: Theme.fieldRadius
        color: Theme.card
        border.width: root.activeFocus ? Theme.focusWidth : 1
        border.color: root.activeFocus ? Theme.accent : Theme.line
    }
}
