import QtQuick
import Ostrel.Ui

// One grant: whether it is there, what it is for, and the button that asks for it.
Rectangle {
    id: root

    required property string title
    required property string detail
    required property bool granted

    signal allowRequested

    implicitHeight: Math.max(texts.implicitHeight, allow.visible ? allow.implicitHeight : 0) + 2 * Theme.step * 3
    radius: Theme.cardRadius
    color: Theme.card
    border.width: 1
    border.color: Theme.line
    Accessible.role: Accessible.ListItem
    Accessible.name: title + ", " + (granted ? qsTr("granted") : qsTr("not granted"))
    Accessible.description: detail

    Symbol {
        id: mark

        anchors.left: parent.left
        anchors.leftMargin: Theme.step * 3
        anchors.verticalCenter: parent.verticalCenter
        symbol: root.granted ? "checkmark.circle.fill" : "circle.dashed"
        color: root.granted ? Theme.ok : Theme.ink3
        size: 20
    }

    Column {
        id: texts

        anchors.left: mark.right
        anchors.right: allow.visible ? allow.left : parent.right
        anchors.leftMargin: Theme.step * 3
        anchors.rightMargin: Theme.step * 3
        anchors.verticalCenter: parent.verticalCenter
        spacing: 1

        BodyText {
            width: parent.width
            text: root.title
            font.weight: Font.DemiBold
            Accessible.ignored: true
        }
        NoteText {
            width: parent.width
            text: root.detail
            Accessible.ignored: true
        }
    }

    ChooseButtonStyle {
        id: allow

        anchors.right: parent.right
        anchors.rightMargin: Theme.step * 3
        anchors.verticalCenter: parent.verticalCenter
        visible: !root.granted
        text: qsTr("Allow")
        Accessible.description: root.title
        onClicked: root.allowRequested()
    }
}
