import QtQuick
import Ostrel.Ui

// Where a recording began: a ruled line with its time.
Item {
    id: root

    required property string time
    required property bool current

    implicitHeight: label.implicitHeight + Theme.step * 3

    Accessible.role: Accessible.StaticText
    Accessible.name: label.text

    Text {
        id: label

        anchors.left: parent.left
        anchors.verticalCenter: parent.verticalCenter
        width: Math.min(implicitWidth, root.width)
        elide: Text.ElideRight
        fontSizeMode: Text.HorizontalFit
        minimumPixelSize: 10
        text: root.time === "" ? qsTr("Session") : qsTr("Session · %1").arg(root.time)
        textFormat: Text.PlainText
        color: Theme.ink2
        font.family: Theme.sans
        font.pixelSize: Math.round(10.5 * Theme.textScale)
        font.capitalization: Font.AllUppercase
        font.letterSpacing: 0.8
        Accessible.ignored: true
    }
    DividerLine {
        anchors.left: label.right
        anchors.leftMargin: Theme.step * 2
        anchors.right: parent.right
        anchors.verticalCenter: parent.verticalCenter
    }
    RowFocus {
        visible: root.current
    }
}
