import QtQuick
import Ostrel.Model
import Ostrel.Ui

// What went wrong, the button that saves, and the version.
Column {
    id: root

    required property PopoverModel model

    spacing: Theme.step * 2

    MessageLine {
        width: parent.width
        text: root.model.settings.error
        isError: true
        maximumLineCount: 3
        elide: Text.ElideRight
    }
    PillButtonStyle {
        width: parent.width
        enabled: root.model.settings.hasUnsavedChanges && !root.model.settings.saving
        text: qsTr("Save")
        onClicked: root.model.settings.save()
    }
    VersionFooterButtonStyle {
        anchors.horizontalCenter: parent.horizontalCenter
        visible: root.model.canCheckForUpdates
        text: root.model.versionText
        Accessible.description: qsTr("Check for updates")
        onClicked: root.model.checkForUpdates()
    }
    NoteText {
        width: parent.width
        visible: !root.model.canCheckForUpdates
        horizontalAlignment: Text.AlignHCenter
        topPadding: Theme.step
        bottomPadding: Theme.step
        text: root.model.versionText
    }
}
