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
        width: parent.width
        height: Math.max(name.implicitHeight, link.implicitHeight)

        BodyText {
            id: name

            anchors.left: parent.left
            anchors.verticalCenter: parent.verticalCenter
            text: root.title
            font.pixelSize: Theme.labelSize
            font.weight: Font.DemiBold
            // The group is read out by this name.
            Accessible.ignored: true
        }
        NoteText {
            anchors.left: name.right
            anchors.right: link.visible ? link.left : parent.right
            anchors.rightMargin: Theme.step
            anchors.baseline: name.baseline
            visible: root.remark !== ""
            text: " · " + root.remark
            elide: Text.ElideRight
            wrapMode: Text.NoWrap
            Accessible.name: root.remark
        }
        FieldLinkButtonStyle {
            id: link

            anchors.right: parent.right
            anchors.verticalCenter: parent.verticalCenter
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
