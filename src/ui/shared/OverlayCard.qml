import QtQuick

// A card laid over a screen, which can't be reached meanwhile. Escape dismisses it. It is never higher than the panel:
// what it has no room for is scrolled to.
FocusScope {
    id: root

    required property string title
    default property alias content: column.data

    signal dismissed

    focus: true
    opacity: 0
    Component.onCompleted: {
        opacity = 1
        forceActiveFocus()
    }
    Keys.onEscapePressed: root.dismissed()

    Behavior on opacity {
        NumberAnimation {
            duration: Theme.overlayDuration
            easing.type: Easing.OutCubic
        }
    }

    Rectangle {
        anchors.fill: parent
        radius: Theme.panelRadius
        color: Theme.scrim

        // Takes the clicks that are not meant for what lies below.
        MouseArea {
            anchors.fill: parent
            hoverEnabled: true
            onWheel: wheel => wheel.accepted = true
        }
    }

    Rectangle {
        anchors.centerIn: parent
        width: parent.width - 2 * Theme.step * 3
        height: Math.min(page.contentHeight, parent.height - 2 * Theme.step * 3)
        radius: Theme.cardRadius
        color: Theme.paper
        border.width: 1
        border.color: Theme.line
        Accessible.role: Accessible.Dialog
        Accessible.name: root.title

        ScrollPage {
            id: page

            anchors.fill: parent
            contentHeight: column.implicitHeight + 2 * Theme.margin

            Column {
                id: column

                x: Theme.margin
                y: Theme.margin
                width: page.width - 2 * Theme.margin
                spacing: Theme.step * 3

                Text {
                    width: parent.width
                    text: root.title
                    textFormat: Text.PlainText
                    color: Theme.ink
                    wrapMode: Text.Wrap
                    horizontalAlignment: Text.AlignLeft
                    font.family: Theme.serif
                    font.pixelSize: Theme.daySize
                    font.weight: Font.DemiBold
                    Accessible.role: Accessible.Heading
                    Accessible.name: text
                }
            }
        }
    }
}
