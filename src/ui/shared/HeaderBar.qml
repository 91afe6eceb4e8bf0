import QtQuick

// The top of every screen: where one is, the way back, and what else there is.
FocusScope {
    id: root

    required property string title
    property bool hasBack: false
    default property alias actions: actionRow.data

    signal back

    implicitHeight: Theme.headerHeight
    implicitWidth: Theme.panelWidth

    HeaderIconButton {
        id: backButton

        anchors.left: parent.left
        anchors.leftMargin: Theme.step * 2
        anchors.verticalCenter: parent.verticalCenter
        visible: root.hasBack
        symbol: "chevron.left"
        mirrorSymbol: true
        text: qsTr("Back")
        onClicked: root.back()
    }

    Text {
        id: titleText

        readonly property int clear: backButton.width + Theme.step * 3

        anchors.left: parent.left
        anchors.leftMargin: root.hasBack ? clear : Theme.margin
        anchors.right: root.hasBack ? parent.right : actionRow.left
        anchors.rightMargin: root.hasBack ? clear : Theme.step
        anchors.verticalCenter: parent.verticalCenter
        horizontalAlignment: root.hasBack ? Text.AlignHCenter : Text.AlignLeft
        text: root.title
        textFormat: Text.PlainText
        color: Theme.ink
        elide: Text.ElideRight
        fontSizeMode: Text.HorizontalFit
        minimumPixelSize: 13
        font.family: Theme.serif
        font.pixelSize: Theme.brandSize
        font.weight: Font.DemiBold
        Accessible.role: Accessible.Heading
        Accessible.name: text
    }

    Row {
        id: actionRow

        anchors.right: parent.right
        anchors.rightMargin: Theme.step * 2
        anchors.verticalCenter: parent.verticalCenter
        spacing: Theme.step
    }
}
