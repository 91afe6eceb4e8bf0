import QtQuick
import Ostrel.Model
import Ostrel.Ui

// The settings as they are being edited. Nothing is in force before it is saved, except what says so.
FocusScope {
    id: root

    required property PopoverModel model

    // The user may go, and goes.
    signal back

    implicitHeight: header.height + page.implicitHeight + footer.implicitHeight + Theme.margin

    Connections {
        target: root.model.settings

        function onMayLeave() {
            root.back()
        }
    }

    HeaderBar {
        id: header

        anchors.left: parent.left
        anchors.right: parent.right
        title: qsTr("Settings")
        hasBack: true
        onBack: root.model.settings.prepareToLeaveSettings()
    }

    ScrollPage {
        id: scrollPage

        anchors.left: parent.left
        anchors.right: parent.right
        anchors.top: header.bottom
        anchors.bottom: footer.top
        contentHeight: page.implicitHeight

        Column {
            id: page

            x: Theme.margin
            width: scrollPage.width - 2 * Theme.margin
            topPadding: Theme.step
            bottomPadding: Theme.step * 3
            spacing: Theme.margin

            OutputDirectoryField {
                width: page.width
                form: root.model.settings
            }
            InstructionsField {
                width: page.width
                form: root.model.settings
            }
            ArchiveField {
                width: page.width
                archive: root.model.archive
                target: root.model.archiveTarget
                footageExport: root.model.footageExport
            }
            InferenceField {
                width: page.width
                form: root.model.settings
            }
            AutostartField {
                width: page.width
                form: root.model.autostart
            }
        }
    }

    SettingsFooter {
        id: footer

        anchors.left: parent.left
        anchors.right: parent.right
        anchors.bottom: parent.bottom
        anchors.margins: Theme.margin
        anchors.bottomMargin: Theme.step * 2
        model: root.model
    }
}
