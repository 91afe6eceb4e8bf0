import QtQuick

// What stands on a card below its title: texts, and the buttons in a line at the foot.
FocusScope {
    id: root

    default property alias content: column.data
    property alias leading: leadingRow.data
    property alias trailing: trailingRow.data

    focus: true
    implicitHeight: column.implicitHeight + foot.height + Theme.margin

    Column {
        id: column

        width: parent.width
        spacing: Theme.step * 3
    }

    Item {
        id: foot

        anchors.left: parent.left
        anchors.right: parent.right
        anchors.bottom: parent.bottom
        height: Theme.controlHeight + Theme.step

        Row {
            id: leadingRow

            anchors.left: parent.left
            anchors.verticalCenter: parent.verticalCenter
            spacing: Theme.step * 2
        }
        Row {
            id: trailingRow

            anchors.right: parent.right
            anchors.verticalCenter: parent.verticalCenter
            spacing: Theme.step * 2
        }
    }
}
