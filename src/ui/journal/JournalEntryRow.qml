import QtQuick
import Ostrel.Ui

// What was done, when and where. The text can be selected.
Item {
    id: root

    required property string time
    required property string workspace
    required property string text
    required property bool current

    readonly property int timeWidth: Math.round(60 * Theme.textScale)

    implicitHeight: Math.max(timeText.implicitHeight, body.implicitHeight) + Theme.step * 3

    Accessible.role: Accessible.ListItem
    Accessible.name: workspace === "" ? time + ", " + text : time + ", " + workspace + ", " + text

    Text {
        id: timeText

        anchors.left: parent.left
        anchors.top: body.top
        anchors.topMargin: root.workspace === "" ? 1 : 0
        width: root.timeWidth
        text: root.time
        textFormat: Text.PlainText
        color: Theme.ink2
        horizontalAlignment: Text.AlignLeft
        elide: Text.ElideRight
        font.family: Theme.sans
        font.pixelSize: Theme.noteSize
        Accessible.ignored: true
    }

    Column {
        id: body

        anchors.left: timeText.right
        anchors.right: parent.right
        anchors.top: parent.top
        anchors.topMargin: Theme.step
        spacing: 1

        Text {
            width: parent.width
            visible: root.workspace !== ""
            text: root.workspace
            textFormat: Text.PlainText
            color: Theme.accent
            elide: Text.ElideRight
            horizontalAlignment: Text.AlignLeft
            font.family: Theme.sans
            font.pixelSize: Theme.labelSize
            font.weight: Font.DemiBold
            Accessible.ignored: true
        }
        TextEdit {
            width: parent.width
            text: root.text
            textFormat: TextEdit.PlainText
            readOnly: true
            selectByMouse: true
            wrapMode: TextEdit.Wrap
            color: Theme.ink
            selectionColor: Theme.accent
            selectedTextColor: Theme.accentInk
            font.family: Theme.sans
            font.pixelSize: Theme.bodySize
            Accessible.ignored: true
        }
    }

    RowFocus {
        visible: root.current
    }
}
