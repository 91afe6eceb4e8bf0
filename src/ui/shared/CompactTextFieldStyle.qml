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
    Accessible.description: placeholderText

    Text {
        x: root.leftPadding
        width: root.width - root.leftPadding - root.rightPadding
        height: root.height
        visible: root.length === 0 && root.preeditText === ""
        text: root.placeholderText
        textFormat: Text.PlainText
        color: root.placeholderTextColor
        elide: Text.ElideRight
        horizontalAlignment: root.effectiveHorizontalAlignment
        verticalAlignment: Text.AlignVCenter
        font: root.font
        Accessible.ignored: true
    }

    background: Rectangle {
        radius: Theme.fieldRadius
        color: Theme.card
        border.width: root.activeFocus ? Theme.focusWidth : 1
        border.color: root.activeFocus ? Theme.accent : Theme.line
    }
}
