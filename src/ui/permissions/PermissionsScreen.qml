import QtQuick
import Ostrel.Model
import Ostrel.Ui

// What recording needs of the desktop, and what would make its journal better.
FocusScope {
    id: root

    required property PopoverModel model

    signal journalRequested
    signal settingsRequested

    implicitHeight: header.height + page.implicitHeight + Theme.margin * 2 + continueButton.height

    HomeHeader {
        id: header

        anchors.left: parent.left
        anchors.right: parent.right
        title: qsTr("Permissions")
        onJournalRequested: root.journalRequested()
        onSettingsRequested: root.settingsRequested()
        onQuitRequested: root.model.quit()
    }

    ScrollPage {
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.top: header.bottom
        anchors.bottom: continueButton.top
        anchors.bottomMargin: Theme.margin
        contentHeight: page.implicitHeight

        Column {
            id: page

            x: Theme.margin
            width: parent.width - 2 * Theme.margin
            topPadding: Theme.step
            spacing: Theme.step * 2

            NoteText {
                width: parent.width
                bottomPadding: Theme.step
                text: qsTr("Grant permissions used for local recording and context.")
                font.pixelSize: Theme.labelSize
            }

            Repeater {
                model: root.model.permissions

                PermissionRow {
                    required property int index

                    width: page.width
                    onAllowRequested: root.model.permissions.request(index)
                }
            }

            NoteText {
                width: parent.width
                topPadding: Theme.step
                text: qsTr("After enabling Screen Recording, macOS may ask you to quit and reopen the app.")
            }
        }
    }

    PillButtonStyle {
        id: continueButton

        anchors.left: parent.left
        anchors.right: parent.right
        anchors.bottom: parent.bottom
        anchors.margins: Theme.margin
        focus: true
        enabled: root.model.permissions.canContinuePastPermissions
        text: qsTr("Continue")
        onClicked: root.model.permissions.continueWithoutRecommendedPermissions()
    }
}
