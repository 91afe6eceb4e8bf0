import QtQuick
import Ostrel.Ui

// The large round button, a seal on the page.
BareButton {
    id: root

    readonly property int diameter: 148
    readonly property int rim: 11

    implicitWidth: diameter
    implicitHeight: diameter

    background: Rectangle {
        radius: width / 2
        color: Theme.paper2
        border.width: 1
        border.color: Theme.line
        antialiasing: true

        Rectangle {
            anchors.fill: parent
            anchors.margins: root.rim
            radius: width / 2
            color: root.down ? Theme.cardPressed : root.hovered ? Theme.cardHover : Theme.card
            border.width: 1
            border.color: Theme.line
            antialiasing: true
        }
    }

    FocusRing {
        control: root
        radius: width / 2
    }
}
