import QtQuick
import Ostrel.Model
import Ostrel.Ui

// The recorder, or what has to be granted before.
FocusScope {
    id: root

    required property PopoverModel model

    signal journalRequested
    signal settingsRequested

    implicitHeight: (face.item as Item)?.implicitHeight ?? Theme.windowMaxHeight

    Loader {
        id: face

        anchors.fill: parent
        focus: true
        sourceComponent: root.model.permissions.shouldShowPermissionsGate ? permissions : recorder
    }

    Component {
        id: recorder

        RecorderScreen {
            focus: true
            model: root.model
            onJournalRequested: root.journalRequested()
            onSettingsRequested: root.settingsRequested()
        }
    }
    Component {
        id: permissions

        PermissionsScreen {
            focus: true
            model: root.model
            onJournalRequested: root.journalRequested()
            onSettingsRequested: root.settingsRequested()
        }
    }
}
