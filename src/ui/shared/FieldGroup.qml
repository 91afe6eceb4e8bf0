import QtQuick

// A field of the settings: its name, an action beside it, and what belongs to it.
Column {
    id: root

    required property string title
    // A word that stands beside the name; may be empty.
    property string remark
    // The words of a small action at the end of the name's line; without them there is none.
    property string action
    default property alias content: rest.data

    signal actionTriggered

    spacing: Theme.step + 2
    Accessible.role: Accessible.Grouping
    Accessible.name: title

    Item {
        id: head

        // Each gets a line of its own where there isn't room for all.
        readonly property bool takesOneLine: name.implicitWidth + dot.implicitWidth + note.implicitWidth + link.implicitWidth + Theme.step <= width
        readonly property real noteLine: takesOneLine || !note.visible ? 0 : note.height

        width: parent.width
        height: takesOneLine ? Math.max(name.height, link.height)
                             : name.height + noteLine + (link.visible ? link.height : 0)

        BodyText {
            id: name

            anchors.left: parent.left
            y: head.takesOneLine ? (head.height - height) / 2 : 0
            width: head.takesOneLine ? implicitWidth : head.width
            text: root.title
            font.pixelSize: Theme.labelSize
            font.weight: Font.DemiBold
            // The group is read out by this name.
            Accessible.ignored: true
        }
        NoteText {
            id: dot

            anchors.left: name.right
            y: note.y
            visible: note.visible && head.takesOneLine
            text: " · "
            Accessible.ignored: true
        }
        NoteText {
            id: note

            anchors.left: head.takesOneLine ? dot.right : parent.left
            y: head.takesOneLine ? name.y + name.baselineOffset - baselineOffset : name.height
            width: head.takesOneLine ? implicitWidth : head.width
            visible: root.remark !== ""
            text: root.remark
        }
        FieldLinkButtonStyle {
            id: link

            anchors.right: parent.right
            y: head.height - height
            visible: root.action !== ""
            text: root.action
            onClicked: root.actionTriggered()
        }
    }

    Column {
        id: rest

        width: parent.width
        spacing: Theme.step * 2
    }
}
