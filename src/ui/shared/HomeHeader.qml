import QtQuick

// The header of both faces of the home screen.
HeaderBar {
    id: root

    signal journalRequested
    signal settingsRequested
    signal quitRequested

    HeaderIconButton {
        symbol: "list.bullet"
        text: qsTr("Journal")
        onClicked: root.journalRequested()
    }
    HeaderIconButton {
        symbol: "gearshape"
        text: qsTr("Settings")
        onClicked: root.settingsRequested()
    }
    HeaderIconButton {
        symbol: "power"
        text: qsTr("Quit Tamsk Ostrel")
        onClicked: root.quitRequested()
    }
}
