import QtQuick

// A square button that shows a symbol alone; the base of HeaderIconButton.
BareButton {
    id: root

    property string symbol
    // For symbols that point somewhere: the other way round where people read from right to left.
    property bool mirrorSymbol: false

    implicitWidth: 32
    implicitHeight: 32
    opacity: enabled ? 1 : 0.5

    contentItem: Item {
        Symbol {
            anchors.centerIn: parent
            symbol: root.symbol
            mirror: root.mirrorSymbol && root.mirrored
            color: root.hovered || root.visualFocus ? Theme.ink : Theme.ink2
        }
    }
    background: Rectangle {
        radius: Theme.fieldRadius
        color: root.down ? Theme.line : Theme.paper2
        opacity: root.hovered || root.down ? 1 : 0

        Behavior on opacity {
            NumberAnimation {
                duration: Theme.overlayDuration
            }
        }
    }

    FocusRing {
        control: root
    }
}
