import QtQuick
import Ostrel.Model
import Ostrel.Ui

// What was done on the last days. It follows what is being written while it is looked at.
FocusScope {
    id: root

    required property PopoverModel model
    // Whether somebody can see it.
    required property bool shown

    signal back

    implicitHeight: Theme.windowMaxHeight

    onShownChanged: root.model.journal.watched = shown
    Component.onCompleted: root.model.journal.watched = shown
    Component.onDestruction: root.model.journal.watched = false

    HeaderBar {
        id: header

        anchors.left: parent.left
        anchors.right: parent.right
        title: qsTr("Journal")
        hasBack: true
        onBack: root.back()

        HeaderIconButton {
            symbol: "folder"
            text: qsTr("Open in Finder")
            onClicked: root.model.journal.revealOutputDirectory()
        }
    }

    JournalList {
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.top: header.bottom
        anchors.bottom: parent.bottom
        anchors.bottomMargin: 1
        focus: true
        journal: root.model.journal
        visible: count > 0
    }

    BodyText {
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.margins: Theme.margin * 2
        anchors.verticalCenter: parent.verticalCenter
        visible: root.model.journal.count === 0
        horizontalAlignment: Text.AlignHCenter
        color: Theme.ink2
        text: qsTr("No entries yet. Start a recording to begin today's journal.")
    }
}
